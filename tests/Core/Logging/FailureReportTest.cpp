// The road of a failure, each in a process of its own.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_Threads.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define QLM_UNDER_SANITIZER 1
#endif

namespace {

/// The log lies in a fixed place, since the child process starts the test anew.
class FailureReportDeathTest : public testing::Test {
  protected:
    FailureReportDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    static constexpr const char* Folder = QLM_BINARY_DIR "/failure-";
    static constexpr const char* LogPath = QLM_BINARY_DIR "/failure-Quillmere-Log.txt";
    static void StartLog(bool signals = false) {
        QLM_InitializeExceptionHandling(Folder, signals);
        QLM_SetLoggingLevel(3);
    }
    /// The lines of the child's log.
    static std::string Log() {
        std::string text;
        if (FILE* file = std::fopen(LogPath, "rb")) {
            for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
                // Letters are mirrored and line ends stand as "?".
                if (c >= 'a' && c <= 'z') c = 219 - c;
                else if (c >= 'A' && c <= 'Z') c = 155 - c;
                text += c == '?' ? '\n' : static_cast<char>(c);
            }
            std::fclose(file);
        }
        std::remove(LogPath);
        return text;
    }
    static void OnWorker(void (*function)()) {
        uint32_t id = 0;
        QLM_StartThread(id, function, QLM_ThreadPriority::Normal, "Faulty_ThreadFunc");
        QLM_JoinThread(id);
    }
};

TEST_F(FailureReportDeathTest, WithoutAHookTheFinalReportEndsTheProcess) {
    const std::string report = "The following error occured...\n\nbad luck\n\nAn error report has been saved to the "
                               "following location...\n\n" QLM_BINARY_DIR "/failure-Quillmere-Log.txt\n\nPlease "
                               "send this file to Quillmere technical support to help us solve the issue.";
    EXPECT_EXIT({ StartLog(); QLM_ReportFailure("bad luck"); }, testing::ExitedWithCode(1), report);
    EXPECT_EQ(Log(), "---\nT:Main\nException: bad luck\n");
    EXPECT_EXIT({ StartLog(); OnWorker([] { QLM_ReportFailure("bad luck"); }); }, testing::ExitedWithCode(1), report);
    EXPECT_TRUE(Log().ends_with("\n---\nT:Main\nException: bad luck\n"));
    // Without a log there is nothing to send.
    EXPECT_EXIT(QLM_ReportFailure("too early"), testing::ExitedWithCode(1), "too early");
}

TEST_F(FailureReportDeathTest, TheHookTakesOver) {
    EXPECT_EXIT({
        StartLog();
        QLM_TraceScope open("a.cpp", 1, "Open", 1);
        QLM_SetFailureHook([](const std::string& text) {
            QLM_TraceScope silent("a.cpp", 2, "Silent", 1);
            if (!QLM_IsFailureUnderWay()) QLM_Exit(9);
            std::fprintf(stderr, "saving after: %s", text.c_str());
            QLM_Exit(3);
        });
        QLM_ReportFailure("bad luck");
    }, testing::ExitedWithCode(3), "saving after: bad luck");
    EXPECT_EQ(Log(), "---\nT:Main\nF:a.cpp\nL:1\nOpen\n@\nException: bad luck\n");

    // A failure of the hook itself is reported without it.
    EXPECT_EXIT({
        StartLog();
        QLM_SetFailureHook([](const std::string&) { QLM_ReportFailure("second"); });
        QLM_ReportFailure("first");
    }, testing::ExitedWithCode(1), "The following error occured...\n\nsecond");
    Log();
}

/// A read through null that the compiler can't foresee.
void ReadThroughNull() {
    static int* volatile nowhere = nullptr;
    const volatile int value = *nowhere;
    static_cast<void>(value);
}

TEST_F(FailureReportDeathTest, CrashesReachTheReport) {
#ifdef QLM_UNDER_SANITIZER
    GTEST_SKIP() << "the sanitizer keeps the crash signals for its own report";
#endif
    EXPECT_EXIT({ StartLog(true); ReadThroughNull(); }, testing::ExitedWithCode(1),
                "The following error occured...\n\nAccess violation, signal 11\n\n");
    EXPECT_EQ(Log(), "--- ERROR ---\n- Main Thread -\nError code: 11\nThread Function Name: MAIN\nException Code : 11\n"
                     "---\nT:Main\nException: Access violation, signal 11\n");

    EXPECT_EXIT({ StartLog(true); OnWorker(ReadThroughNull); }, testing::ExitedWithCode(1),
                "Access violation, signal 11");
    const std::string log = Log();
    EXPECT_NE(log.find("Thread Function Name: Faulty_ThreadFunc\n"), std::string::npos) << log;
    EXPECT_NE(log.find("T:Main\nException: Access violation, signal 11\n"), std::string::npos) << log;

    EXPECT_EXIT({ StartLog(true); std::abort(); }, testing::ExitedWithCode(1),
                "Unhandled exception at 0x[0-9a-f]+:\r\nCode 0x00000006: Aborted");
    Log();
    // A second fault on the road ends the process by its signal.
    EXPECT_EXIT({
        StartLog(true);
        QLM_SetFailureHook([](const std::string&) { ReadThroughNull(); });
        ReadThroughNull();
    }, testing::KilledBySignal(SIGSEGV), "");
    Log();
    // The former handlers are back behind the log's end.
    EXPECT_EXIT({ StartLog(true); QLM_EndLogging(); ReadThroughNull(); }, testing::KilledBySignal(SIGSEGV), "");
    Log();
}

} // namespace
