#pragma once
// The one object between the engine and the platform: messages, questions, busy state, directories.

#include "Core/Objects/ThreadLocker.h"
#include "Core/OS/QLM_Clock.h"
#include "Core/OS/QLM_Format.h"
#include "Core/OS/QLM_String.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

/// What a shell hands over at start. A missing callback is simply not called. All on the main thread.
struct QLM_OSCallbacks {
    std::function<void(const std::string&)> printMessage, printStatus, printHint;
    std::function<void()> refreshMessage; ///< a repeated message that is not printed anew
    std::function<void()> showBusy, pumpMessages;
    std::function<void(const std::string& caption, const std::string& text)> messageBox;
    std::function<bool(const std::string& caption, const std::string& text)> askOkCancel, askYesNo;
    /// Answers a path, or an empty text for cancel.
    std::function<std::string(const std::string& description, const std::string& extension, const std::string& suggestion, bool forSaving)> fileDialog;
    std::function<std::string(const std::string& question, const std::string& suggestion)> askText;
    std::function<void(const std::string&)> openAddress;
    std::function<void()> exitToolkit;
};

/// A message, box or question as it was shown, for tests, scripts and the error of a statement.
struct QLM_RecordedMessage {
    enum class Kind { Message, Status, Hint, Box, Question };
    Kind kind;
    std::string text;
};

class QLM_OS {
  public:
    static QLM_OS& Get();

    void SetCallbacks(QLM_OSCallbacks callbacksIn) { callbacks = std::move(callbacksIn); }

    /// Finds the application directory (from the executable's real path) and tells whether "Data/anchor.dat" lies below.
    bool Initialize();
    const std::string& GetApplicationDirectory() const { return applicationDirectory; }
    void SetApplicationDirectory(const std::string& folder);

    static int GetNumberOfThreads();          ///< 1..32; any thread
    static void SetNumberOfThreads(int n);    ///< overrides the processor count; before the first crunch
    static std::string GetConfigDirectory();  ///< ${XDG_CONFIG_HOME:-~/.config}/Quillmere/, needs no callback
    static std::string GetDocumentsDirectory();
    static std::string GetTempPath();
    static uint32_t GetFreePhysicalMemoryMB();
    static bool IsMainThread();
    static void SetMainThread();

    // Messages. Formatting as QLM_Format. Main thread; workers hand their texts over.
    template <class... A> void PrintMessage(const char* format, const A&... args) { PrintMessageText(QLM_FormatText(format, args...)); }
    template <class... A> void PrintMessageNoRepeat(const char* format, const A&... args) { PrintMessageNoRepeatText(QLM_FormatText(format, args...)); }
    template <class... A> void PrintStatus(const char* format, const A&... args) { PrintStatusText(QLM_FormatText(format, args...)); }
    template <class... A> void PrintStatusNoRepeat(const char* format, const A&... args) { PrintStatusNoRepeatText(QLM_FormatText(format, args...)); }
    template <class... A> void PrintHint(const char* format, const A&... args) { PrintHintText(QLM_FormatText(format, args...)); }
    /// Modal box with OK, caption "Error...".
    template <class... A> void MessageBox(const char* format, const A&... args) { MessageBoxText(QLM_FormatText(format, args...)); }
    /// Caption "Confirm..."; true for OK.
    template <class... A> bool AskOkCancel(const char* format, const A&... args) { return AskText(QLM_FormatText(format, args...), false); }
    template <class... A> bool AskYesNo(const char* format, const A&... args) { return AskText(QLM_FormatText(format, args...), true); }
    void PrintMessageText(const std::string& text);
    void PrintMessageNoRepeatText(const std::string& text);
    void PrintStatusText(const std::string& text);
    void PrintStatusNoRepeatText(const std::string& text);
    void PrintHintText(const std::string& text);
    void MessageBoxText(const std::string& text);
    bool AskText(const std::string& text, bool yesNo);
    /// A path from a file dialog, empty for cancel; without a callback taken from the queued answers.
    std::string AskFile(const std::string& description, const std::string& extension, const std::string& suggestion, bool forSaving);
    /// A line of text from the user, empty for cancel; without a callback taken from the queued answers.
    std::string AskLine(const std::string& question, const std::string& suggestion);
    /// Asks whether to find a missing file; the answer's folder joins the temporary search paths. Empty for no.
    std::string LocateFile(const std::string& name);

    /// Queued answers for shells without windows: "yes"/"ok", "no"/"cancel" or a path. An empty queue answers no and
    /// counts in `unansweredQuestions`.
    std::deque<std::string> queuedAnswers;
    int unansweredQuestions = 0;
    /// What was said, for scripts and tests; a long session of a user switches it off.
    std::vector<QLM_RecordedMessage> recorded;
    bool isRecording = true;

    void SetBusy(bool on);
    bool IsBusy() const { return busy; }
    /// Inside long loops: every 0.5 s while busy shows the busy state and pumps the toolkit once. Main thread only.
    void KeepBusyAlive();
    bool IsPumping() const { return pumping; }

    // Keys and buttons, written by the shells' event road on the main thread, read anywhere.
    std::atomic<bool> altDown{false}, controlDown{false}, shiftDown{false};
    std::atomic<int> mouseButtonsDown{0};

    void OpenAddress(const std::string& url);
    void ExitToolkit();
    /// A box on the main thread of a shell with windows, else a line on standard error. Any thread.
    void ShowFinalMessage(const std::string& text);
    QLM_String lastMessage;

  private:
    void Record(QLM_RecordedMessage::Kind kind, const std::string& text);
    /// True when `text` was the last one already; else it is from now on.
    bool IsRepeated(const std::string& text);
    /// The next queued answer; empty, and counted, when there is none or when it refuses.
    std::string NextAnswer();

    QLM_OSCallbacks callbacks;
    ThreadLocker lock;
    std::string applicationDirectory;
    bool busy = false;
    bool pumping = false;
    QLM_Stopwatch busyStopwatch;
};

/// Ends the process after flushing, joining crunchers and closing the log; never returns. Any thread.
[[noreturn]] void QLM_Exit(int status);
/// Shows the text on the fatal road (box or standard error) and ends the process with status 1.
[[noreturn]] void QLM_ExitWithMessage(const std::string& text);
