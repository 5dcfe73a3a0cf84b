// Messages and questions, directories, memory under pressure, time and the pen.

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "tests/Core/Raised.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

class OS : public testing::Test {
  protected:
    void SetUp() override { Reset(); }
    void TearDown() override { Reset(); }
    void Reset() {
        os.SetCallbacks({});
        os.queuedAnswers.clear();
        os.recorded.clear();
        os.unansweredQuestions = 0;
        os.lastMessage = "";
        os.SetBusy(false);
        QLM_Clock::UseRealTime();
        hooks = {};
    }
    QLM_OS& os = QLM_OS::Get();
    QLM_ModuleHooks& hooks = QLM_GetModuleHooks();
};

TEST_F(OS, WithoutAShellAnswersComeFromTheQueue) {
    os.queuedAnswers = {"YES", "no", "ok", "/home/x y.obj", "Cancel", "maybe"};
    EXPECT_TRUE(os.AskYesNo("Wrap %d?", 4));
    EXPECT_FALSE(os.AskYesNo("Really?"));
    EXPECT_TRUE(os.AskOkCancel("Save %s?", "now"));
    EXPECT_EQ(os.AskFile("Object", "obj", "a.obj", false), "/home/x y.obj");
    EXPECT_EQ(os.AskFile("Object", "obj", "a.obj", true), "");
    EXPECT_FALSE(os.AskYesNo("Sure?")) << "what isn't a yes is a no";
    EXPECT_EQ(os.unansweredQuestions, 0);
    EXPECT_FALSE(os.AskOkCancel("And now?"));
    EXPECT_EQ(os.AskLine("Name?", "x"), "");
    EXPECT_EQ(os.unansweredQuestions, 2);
    os.MessageBox("Box %s", "text");
    ASSERT_EQ(os.recorded.size(), 9u);
    EXPECT_EQ(os.recorded.front().text, "Wrap 4?");
    EXPECT_EQ(os.recorded.front().kind, QLM_RecordedMessage::Kind::Question);
    EXPECT_EQ(os.recorded.back().text, "Box text");
    EXPECT_EQ(os.recorded.back().kind, QLM_RecordedMessage::Kind::Box);
}

TEST_F(OS, AShellIsHandedWhatIsToBeShown) {
    std::vector<std::string> shown;
    const auto show = [&](const std::string& text) { shown.push_back(text); };
    const auto ask = [&](const std::string& caption, const std::string& text) {
        shown.push_back(caption + text);
        return true;
    };
    QLM_OSCallbacks callbacks;
    callbacks.printMessage = callbacks.printStatus = callbacks.printHint = show;
    callbacks.refreshMessage = [&] { shown.push_back("refresh"); };
    callbacks.messageBox = ask;
    callbacks.askYesNo = callbacks.askOkCancel = ask;
    os.SetCallbacks(callbacks);

    os.PrintMessage("%d", 1);
    os.PrintMessageNoRepeat("a");
    os.PrintMessageNoRepeat("a");
    os.PrintStatusNoRepeat("b");
    os.PrintMessageNoRepeat("a");
    os.PrintStatus("s");
    os.PrintHint("h");
    os.MessageBox("m");
    EXPECT_TRUE(os.AskYesNo("y"));
    EXPECT_TRUE(os.AskOkCancel("o"));
    EXPECT_EQ(shown, (std::vector<std::string>{"1", "a", "refresh", "b", "a", "s", "h", "Error...m", "Confirm...y",
                                               "Confirm...o"}));
}

TEST_F(OS, AMissingFileIsLocatedByTheUser) {
    std::string added;
    hooks.addTemporarySearchPath = [&](const std::string& folder) { added = folder; };
    os.queuedAnswers = {"yes", "/maps\\skin/Face.png"};
    EXPECT_EQ(os.LocateFile("Face.png"), "/maps\\skin/Face.png");
    EXPECT_EQ(added, "/maps/skin/");
    EXPECT_EQ(os.recorded[0].text, "The file 'Face.png' cannot be found. Do you want to find it now?");
    os.queuedAnswers = {"no"};
    EXPECT_EQ(os.LocateFile("Face.png"), "");
}

TEST_F(OS, TheBusyStateIsPumpedEveryHalfSecondAndNeverInsideItself) {
    int pumped = 0, shown = 0;
    QLM_OSCallbacks callbacks;
    callbacks.showBusy = [&] { ++shown; };
    callbacks.pumpMessages = [&] {
        ++pumped;
        EXPECT_TRUE(os.IsPumping());
        QLM_Clock::Step(1.0);
        os.KeepBusyAlive();
    };
    os.SetCallbacks(callbacks);
    QLM_Clock::UseSteppedTime();
    QLM_Clock::Step(10.0);
    os.KeepBusyAlive();
    EXPECT_EQ(pumped, 0) << "not busy";
    os.SetBusy(true);
    QLM_Clock::Step(0.25);
    os.KeepBusyAlive();
    EXPECT_EQ(pumped, 0);
    QLM_Clock::Step(0.25);
    std::thread([&] { os.KeepBusyAlive(); }).join();
    EXPECT_EQ(pumped, 0) << "main thread only";
    os.KeepBusyAlive();
    EXPECT_EQ(pumped, 1);
    EXPECT_EQ(shown, 1);
    EXPECT_FALSE(os.IsPumping());
}

TEST_F(OS, DirectoriesEndWithASeparator) {
    setenv("XDG_CONFIG_HOME", "/settings//here", 1);
    EXPECT_EQ(QLM_OS::GetConfigDirectory(), "/settings/here/Quillmere/");
    setenv("XDG_CONFIG_HOME", "relative", 1);
    setenv("HOME", "/nowhere", 1);
    EXPECT_EQ(QLM_OS::GetConfigDirectory(), "/nowhere/.config/Quillmere/");
    EXPECT_EQ(QLM_OS::GetDocumentsDirectory(), "/nowhere/");

    const std::string home = testing::TempDir() + "quillmere home/";
    QLM_CreateDirectory(home + "Papiere");
    FILE* file = QLM_fopen(home + "user-dirs.dirs", "w");
    ASSERT_NE(file, nullptr);
    std::fputs("# comment\nXDG_DOCUMENTS_DIR=\"$HOME/Papiere\"\n", file);
    QLM_fclose(file);
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", home.c_str(), 1);
    EXPECT_EQ(QLM_OS::GetDocumentsDirectory(), home + "Papiere/");
    unsetenv("XDG_CONFIG_HOME");

    EXPECT_EQ(QLM_OS::GetTempPath().back(), '/');
    EXPECT_GT(QLM_OS::GetFreePhysicalMemoryMB(), 0u);
    QLM_OS::SetNumberOfThreads(99);
    EXPECT_EQ(QLM_OS::GetNumberOfThreads(), 32);
    QLM_OS::SetNumberOfThreads(2);
    EXPECT_EQ(QLM_OS::GetNumberOfThreads(), 2);
    EXPECT_TRUE(QLM_OS::IsMainThread());
    bool other = true;
    std::thread([&] { other = QLM_OS::IsMainThread(); }).join();
    EXPECT_FALSE(other);
}

TEST_F(OS, ExitsWithItsStatusAndMessage) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(QLM_ExitWithMessage("The disk has left"), testing::ExitedWithCode(1), "The disk has left");
}

TEST_F(OS, ReallocKeepsTheCommonPart) {
    EXPECT_EQ(QLM_Malloc(0, false), nullptr);
    char* block = static_cast<char*>(QLM_Malloc(4, false));
    std::memcpy(block, "abc", 4);
    block = static_cast<char*>(QLM_Realloc(block, 4, 100, false));
    EXPECT_STREQ(block, "abc");
    block = static_cast<char*>(QLM_Realloc(block, 100, 2, false));
    EXPECT_EQ(block[1], 'b');
    EXPECT_EQ(QLM_Realloc(block, 2, 0, false), nullptr);
}

// The sanitizers' allocators end the process where the plain one gives null.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(OS, ShortMemoryIsReleasedAndTriedAgain) {
    // Leave room for half of what is asked for.
    constexpr size_t Size = size_t{1} << 28;
    size_t pages = 0;
    FILE* file = std::fopen("/proc/self/statm", "r");
    ASSERT_TRUE(file && std::fscanf(file, "%zu", &pages) == 1);
    std::fclose(file);
    rlimit old{};
    getrlimit(RLIMIT_AS, &old);
    const rlimit tight{pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + Size / 2, old.rlim_max};
    setrlimit(RLIMIT_AS, &tight);
    int released = 0;
    hooks.releaseMemory = [&] {
        if (++released == 3) setrlimit(RLIMIT_AS, &old);
    };
    void* block = QLM_Malloc(Size, true);
    setrlimit(RLIMIT_AS, &old);
    EXPECT_EQ(released, 3);
    QLM_Free(block);

    volatile size_t absurd = SIZE_MAX / 2 + 1;
    EXPECT_EQ(QLM_Malloc(absurd, true), nullptr);
    EXPECT_EQ(Raised([&] { QLM_Malloc(absurd, false); }), "Memory allocation of 9223372036854775808 bytes failed");
    char* kept = static_cast<char*>(QLM_Malloc(1, false));
    EXPECT_EQ(QLM_Realloc(kept, 1, absurd, true), nullptr);
    QLM_Free(kept); // still the caller's
}
#endif

TEST_F(OS, ThePressureCurve) {
    EXPECT_EQ(QLM_PressureFromRaw(1023, 0, 1024, 0.5f, 0.0f), 1.0f) << "straight at a sensitivity of a half";
    EXPECT_FLOAT_EQ(QLM_PressureFromRaw(1024, 0, 1024, 0.5f, 0.0f), 1024.0f / 1023.0f) << "not clamped";
    EXPECT_FLOAT_EQ(QLM_PressureFromRaw(300, 100, 2048, 0.5f, 0.0f), 100.0f / 1023.0f);
    EXPECT_FLOAT_EQ(QLM_PressureFromRaw(3, 0, 2048, 0.5f, 0.0f), 2.0f / 1023.0f) << "1.5 rounds up";
    EXPECT_EQ(QLM_PressureFromRaw(1000, 0, 1024, 0.5f, 0.99f), 0.0f);
    EXPECT_NEAR(QLM_PressureFromRaw(512, 0, 1024, 0.5f, 0.25f), (512.0 / 1023.0 - 0.25) / 0.75, 1e-6);
    // Exponent 2 x 0.75 four times over: 1.5^4 = 5.0625.
    EXPECT_NEAR(QLM_PressureFromRaw(512, 0, 1024, 0.75f, 0.0f), std::pow(512.0 / 1023.0, 5.0625), 1e-6);
    EXPECT_NEAR(QLM_PressureFromRaw(512, 0, 1024, 7.0f, -1.0f), std::pow(512.0 / 1023.0, 16.0), 1e-9);
    EXPECT_EQ(QLM_PressureFromRaw(5, 0, 0, 0.5f, 0.0f), 0.0f);
}

TEST_F(OS, AMouseHasFullPressureAPenItsOwn) {
    QLM_Clock::UseSteppedTime();
    hooks.tabletSettings = [] { return QLM_TabletSettings{0.5f, 0.0f}; };
    QLM_TabletPacket(0, 0, 1024);
    EXPECT_EQ(QLM_GetPressure(), 0.0f);
    QLM_Clock::Step(1.0);
    QLM_TabletButtonDown();
    EXPECT_EQ(QLM_GetPressure(), 0.0f) << "more than a second, not a second";
    QLM_Clock::Step(0.5);
    QLM_TabletButtonDown();
    EXPECT_EQ(QLM_GetPressure(), 1.0f);
    QLM_SetPressure(0.25f);
    QLM_TabletButtonDown();
    EXPECT_EQ(QLM_GetPressure(), 0.25f) << "a script's pen is a pen";
}

} // namespace
