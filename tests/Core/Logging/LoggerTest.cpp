// What stands in the log file, and that tools/readlog reads it back.

#include "Core/Logging/QLM_LogInternals.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;

class LoggerTest : public testing::Test {
  protected:
    LoggerTest() {
        std::string pattern = testing::TempDir() + "qlm-log-XXXXXX";
        folder = std::string(mkdtemp(pattern.data())) + "/";
    }
    ~LoggerTest() override {
        QLM_EndLogging();
        fs::remove_all(folder);
    }
    void StartLog(int level) {
        QLM_InitializeExceptionHandling(folder, false);
        QLM_SetLoggingLevel(level);
    }
    std::string RawLog() const { return ReadFile(folder + "Quillmere-Log.txt"); }
    /// The substitution undone: it is its own inverse but for "!" and "@" of a message.
    std::string Log() const {
        std::string text = RawLog();
        for (char& c : text) c = c == '@' ? '{' : c == '!' ? '}' : QLM_SubstituteCharForLog(c);
        return text;
    }
    void WriteIni(const std::string& text) const { std::ofstream(folder + "loggingLevel.ini") << text; }
    static std::string ReadFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    struct ToolResult {
        int status;
        std::string output, complaint;
    };
    ToolResult RunReadLog(const std::string& path) const {
        const std::string command = QLM_FormatText("python3 '%s/tools/readlog' '%s' >'%sout' 2>'%serr'",
                                                   QLM_SOURCE_DIR, path, folder, folder);
        const int status = std::system(command.c_str());
        return {WEXITSTATUS(status), ReadFile(folder + "out"), ReadFile(folder + "err")};
    }
    /// The tool's answer to a log with this plain text.
    ToolResult RunReadLogOn(const std::string& text) const {
        std::string written;
        for (const char c : text) written += QLM_SubstituteCharForLog(c);
        std::ofstream(folder + "made.txt", std::ios::binary) << written;
        return RunReadLog(folder + "made.txt");
    }
    static int CountOf(const std::string& part, const std::string& text) {
        int count = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
        return count;
    }
    std::string folder;
};
using LoggerDeathTest = LoggerTest;

TEST(LogSubstitution, MirrorsLettersAndSwapsMarks) {
    EXPECT_EQ(QLM_SubstituteForLog("abyz ABYZ"), "zyba ZYBA");
    EXPECT_EQ(QLM_SubstituteForLog("\n?{}!@"), "?\n@!AA");
    EXPECT_EQ(QLM_SubstituteForLog("0: ~-\r\t\xC3\xA9"), "0: ~-\r\t\xC3\xA9");
}

TEST_F(LoggerTest, LinesOfTheMainThreadAndOfAWorker) {
    StartLog(1);
    {
        QLM_TraceScope outer("a.cpp", 5, "Outer", 1);
        QLM_TraceScope silent("a.cpp", 6, "Silent", 2);
        QLM_TraceScope inner("a.cpp", 7, "Inner", 1);
        QLM_Heartbeat("a.cpp", 7, 1);
        QLM_Heartbeat("b.cpp", 7, 1);
        QLM_Heartbeat("b.cpp", 8, 2);
    }
    QLM_LogText("Why? {so}\n}");
    uint32_t worker = 0;
    QLM_StartThread(worker, [] {
        QLM_TraceScope scope("b.cpp", 9, "Work", 1);
        QLM_Heartbeat("b.cpp", 10, 1); // the main thread's only
    }, QLM_ThreadPriority::Normal, "Work_ThreadFunc");
    QLM_JoinThread(worker);
    QLM_EndLogging();
    const std::string number = std::to_string(worker);
    EXPECT_EQ(Log(), "---\nT:Main\nF:a.cpp\nL:5\nOuter\n{\nL:7\nInner\n{\nF:b.cpp\n}\n}\nWhy? {so}\n }\n"
                     "---\nT:" + number + "\n Launching Thread, function: Work_ThreadFunc, threadID: " + number + "\n"
                     "F:b.cpp\nL:9\nWork\n~Work\n"
                     "---\nT:Main\nProgram ending normally\n");
    EXPECT_EQ(RawLog().substr(0, 11), "---?G:Nzrm?");
    const ToolResult read = RunReadLog(folder + "Quillmere-Log.txt");
    EXPECT_EQ(read.status, 0) << read.complaint;
    EXPECT_EQ(read.output, Log());
}

TEST_F(LoggerTest, FullLogOfManyThreadsIsBalanced) {
    const int processors = QLM_OS::GetNumberOfThreads();
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(4);
    StartLog(3);
    std::vector<uint32_t> threads(3);
    for (uint32_t& id : threads) {
        QLM_StartThread(id, [] {
            QLM_TRACE(1);
            for (int i = 0; i < 50; ++i) {
                QLM_TRACE(3);
                QLM_Log("{ text of a worker!\n}\n~Other");
            }
        }, QLM_ThreadPriority::Normal, "Talker");
    }
    for (int i = 0; i < 50; ++i) {
        QLM_TRACE(2);
        QLM_ThreadCrunch(4, [](const ThreadCrunchRange&) { QLM_TRACE(3); }, "Crunch_Of_The_Test");
        QLM_LogText("}");
    }
    for (const uint32_t id : threads) QLM_JoinThread(id);
    QLM_EndLogging();
    const ToolResult read = RunReadLog(folder + "Quillmere-Log.txt");
    EXPECT_EQ(read.status, 0) << read.complaint;
    EXPECT_EQ(CountOf("\nCrunch_Of_The_Test\n", read.output), 200);
    EXPECT_EQ(CountOf("\n{\n", read.output) + CountOf("\n~", read.output),
              /* crunch and body */ 400 + /* main loop */ 50 + /* threads and their loops */ 3 * 51);
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(processors);
}

TEST_F(LoggerTest, ReadLogFindsWhatIsWrong) {
    const std::string end = "Program ending normally\n", worker = "---\nT:5\n", main = "---\nT:Main\n";
    const auto complaint = [&](const std::string& text) {
        const ToolResult read = RunReadLogOn(text);
        EXPECT_EQ(read.output, text);
        EXPECT_EQ(read.status, read.complaint.empty() ? 0 : 1);
        EXPECT_LE(CountOf("\n", read.complaint), 1);
        return read.complaint;
    };
    EXPECT_EQ(complaint(main + "A\n{\n}\n" + end), "");
    EXPECT_NE(complaint(main + "A\n{\n" + end), "");
    EXPECT_NE(complaint(main + "A\n{\n}\n}\nB\n{\n" + end), "");
    EXPECT_NE(complaint(main + "A\n{\n}\n"), "");
    EXPECT_NE(complaint(main + end + "A\n{\n}\n"), "");
    EXPECT_EQ(complaint(worker + "A\nB\n---\nT:6\nA\n" + worker + "~B\n~A\n---\nT:6\n~A\n" + main + end), "");
    EXPECT_NE(complaint(worker + "A\nB\n~A\n~B\n" + main + end), "");
    EXPECT_NE(complaint(worker + "A\nB\n~B\n" + main + end), "");
    EXPECT_NE(complaint(worker + "~B\n" + main + end), "");
    EXPECT_EQ(RunReadLog(folder + "none").status, 1);
    EXPECT_EQ(RunReadLogOn("").status, 1);
}

TEST_F(LoggerTest, LevelsComeFromTheIni) {
    QLM_SetLoggingLevel(3); // without a log nothing is in force
    EXPECT_EQ(QLM_LogLevelInForce, 0);
    QLM_InitializeExceptionHandling(folder, false);
    EXPECT_EQ(QLM_GetLoggingLevel(), 1);

    const auto loadedLevel = [&](const char* ini) {
        if (ini) WriteIni(ini);
        QLM_SetLoggingLevel(0);
        QLM_LoadLoggingLevel(folder);
        EXPECT_EQ(QLM_LogLevelInForce, QLM_GetLoggingLevel());
        return QLM_GetLoggingLevel();
    };
    EXPECT_EQ(loadedLevel(nullptr), 1);
    EXPECT_EQ(loadedLevel("7\n"), 3);
    EXPECT_EQ(loadedLevel("-1\n"), 0);
    EXPECT_EQ(loadedLevel("2"), 2);
    EXPECT_EQ(loadedLevel("99999999999999999999"), 3);
    EXPECT_EQ(loadedLevel("no number"), 1);

    WriteIni("0");
    QLM_SetLoggingLevel(2);
    QLM_LoadLoggingLevel(folder); // only raises
    EXPECT_EQ(QLM_GetLoggingLevel(), 2);
    QLM_SetLoggingLevelToLoaded();
    EXPECT_EQ(QLM_GetLoggingLevel(), 0);
    { QLM_TraceScope scope("a.cpp", 1, "AtLevelZero", 1); }
    WriteIni("3");
    QLM_LoadLoggingLevel(folder);
    QLM_SetLoggingLevelToLoaded();
    EXPECT_EQ(QLM_LoggingLevelName(QLM_GetLoggingLevel()), std::string("Full"));
    EXPECT_EQ(QLM_LoggingLevelName(4), std::string("ERROR"));
    QLM_EndLogging();
    EXPECT_EQ(Log(), "---\nT:Main\nLogging level: Full\nProgram ending normally\n");
}

TEST_F(LoggerTest, StartsAndEndsOnce) {
    StartLog(1);
    QLM_OS::Get().recorded.clear();
    QLM_InitializeExceptionHandling(folder, false);
    ASSERT_EQ(QLM_OS::Get().recorded.size(), 1u);
    EXPECT_EQ(QLM_OS::Get().recorded[0].text,
              "Logger has already been created. Please only call QLM_InitializeExceptionHandling() once");
    EXPECT_EQ(QLM_GetThreadName(1), "MAIN");
    EXPECT_EQ(QLM_GetThreadName(999999), "UNREGISTERED_THREAD");
    EXPECT_EQ(QLM_GetLogPath(), folder + "Quillmere-Log.txt");
    {
        QLM_TraceScope late("a.cpp", 1, "Late", 1);
        QLM_EndLogging();
        QLM_EndLogging();
        EXPECT_EQ(CountOf("Program ending normally", Log()), 1);
        EXPECT_EQ(QLM_GetThreadName(1), "LOGGER_DISABLED");
        StartLog(1); // the open scope belongs to the log before
    }
    QLM_EndLogging();
    EXPECT_EQ(Log(), "---\nT:Main\nProgram ending normally\n");

    QLM_OS::Get().recorded.clear();
    QLM_InitializeExceptionHandling(folder + "missing/", false);
    ASSERT_EQ(QLM_OS::Get().recorded.size(), 1u);
    EXPECT_EQ(QLM_OS::Get().recorded[0].text, "Failed to create  log file");
    QLM_TraceScope nowhere("a.cpp", 1, "Nowhere", 1);
    QLM_LogText("into nothing");
}

TEST_F(LoggerTest, DumpHoldsTheLogAsItLies) {
    StartLog(1);
    QLM_LogText("abc");
    FILE* dump = std::fopen((folder + "dump").c_str(), "wb");
    QLM_DumpLog(dump);
    std::fclose(dump);
    EXPECT_EQ(ReadFile(folder + "dump"), "---?G:Nzrm?zyx?END_LOG\n");
    EXPECT_EQ(RunReadLog(folder + "dump").output, "---\nT:Main\nabc\n");
}

TEST_F(LoggerTest, RaisedErrorsAreLogged) {
    StartLog(1);
    try {
        QLM_RaiseError("%d of %s", 3, "4");
        FAIL();
    } catch (const QLM_Exception& failure) { EXPECT_STREQ(failure.what(), "3 of 4"); }
    QLM_EndLogging();
    EXPECT_EQ(Log(), "---\nT:Main\nFATAL: 3 of 4\nProgram ending normally\n");
}

} // namespace
