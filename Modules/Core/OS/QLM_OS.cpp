#include "Core/OS/QLM_OS.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/OS/String_Functions.h"
#include "Core/Threads/QLM_ThreadCruncher.h"

#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QLM_LEAK_CHECK
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define QLM_LEAK_CHECK
#endif
#ifdef QLM_LEAK_CHECK
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr float BusyPumpSeconds = 0.5f;
constexpr const char* ErrorCaption = "Error...";
constexpr const char* ConfirmCaption = "Confirm...";

bool IsAnswer(const std::string& answer, const char* word, const char* other) {
    return QLM_CompareNoCase(answer, word) == 0 || QLM_CompareNoCase(answer, other) == 0;
}

} // namespace

QLM_OS& QLM_OS::Get() {
    static QLM_OS& os = *new QLM_OS; // messages may come to the very end
    return os;
}

void QLM_OS::Record(QLM_RecordedMessage::Kind kind, const std::string& text) {
    if (isRecording) recorded.push_back({kind, text});
}

bool QLM_OS::IsRepeated(const std::string& text) {
    const QLM_String message(text);
    ThreadLockerScope scope(&lock);
    if (lastMessage == message) return true;
    lastMessage = message;
    return false;
}

void QLM_OS::PrintMessageText(const std::string& text) {
    Record(QLM_RecordedMessage::Kind::Message, text);
    if (callbacks.printMessage) callbacks.printMessage(text);
}

void QLM_OS::PrintMessageNoRepeatText(const std::string& text) {
    if (!IsRepeated(text)) PrintMessageText(text);
    else if (callbacks.refreshMessage) callbacks.refreshMessage();
}

void QLM_OS::PrintStatusText(const std::string& text) {
    Record(QLM_RecordedMessage::Kind::Status, text);
    if (callbacks.printStatus) callbacks.printStatus(text);
}

void QLM_OS::PrintStatusNoRepeatText(const std::string& text) {
    if (!IsRepeated(text)) PrintStatusText(text);
    else if (callbacks.refreshMessage) callbacks.refreshMessage();
}

void QLM_OS::PrintHintText(const std::string& text) {
    Record(QLM_RecordedMessage::Kind::Hint, text);
    if (callbacks.printHint) callbacks.printHint(text);
}

void QLM_OS::MessageBoxText(const std::string& text) {
    Record(QLM_RecordedMessage::Kind::Box, text);
    if (callbacks.messageBox) callbacks.messageBox(ErrorCaption, text);
}

std::string QLM_OS::NextAnswer() {
    if (queuedAnswers.empty()) {
        ++unansweredQuestions;
        return {};
    }
    std::string answer = queuedAnswers.front();
    queuedAnswers.pop_front();
    return IsAnswer(answer, "no", "cancel") ? std::string() : answer;
}

bool QLM_OS::AskText(const std::string& text, bool yesNo) {
    Record(QLM_RecordedMessage::Kind::Question, text);
    const auto& ask = yesNo ? callbacks.askYesNo : callbacks.askOkCancel;
    return ask ? ask(ConfirmCaption, text) : IsAnswer(NextAnswer(), "yes", "ok");
}

std::string QLM_OS::AskFile(const std::string& description, const std::string& extension,
                            const std::string& suggestion, bool forSaving) {
    Record(QLM_RecordedMessage::Kind::Question, description);
    if (callbacks.fileDialog) return callbacks.fileDialog(description, extension, suggestion, forSaving);
    const std::string answer = NextAnswer();
    return IsAnswer(answer, "yes", "ok") ? suggestion : answer;
}

std::string QLM_OS::AskLine(const std::string& question, const std::string& suggestion) {
    Record(QLM_RecordedMessage::Kind::Question, question);
    if (callbacks.askText) return callbacks.askText(question, suggestion);
    const std::string answer = NextAnswer();
    return IsAnswer(answer, "yes", "ok") ? suggestion : answer;
}

std::string QLM_OS::LocateFile(const std::string& name) {
    if (!AskYesNo("The file '%s' cannot be found. Do you want to find it now?", name)) return {};
    std::string path = AskFile(name, QLM_ExtensionOf(name), QLM_FileNameOf(name), false);
    if (path.empty()) return {};
    if (const auto& add = QLM_GetModuleHooks().addTemporarySearchPath) add(QLM_NormalizeFolder(QLM_FolderOf(path)));
    return path;
}

void QLM_OS::SetBusy(bool on) {
    busy = on;
    busyStopwatch.Start();
}

void QLM_OS::KeepBusyAlive() {
    if (!IsMainThread() || !busy || pumping || busyStopwatch.GetElapsedSeconds() < BusyPumpSeconds) return;
    busyStopwatch.Start();
    struct PumpingScope { // a callback may throw
        bool& flag;
        explicit PumpingScope(bool& f) : flag(f) { flag = true; }
        ~PumpingScope() { flag = false; }
    } scope(pumping);
    if (callbacks.showBusy) callbacks.showBusy();
    if (callbacks.pumpMessages) callbacks.pumpMessages();
}

void QLM_OS::OpenAddress(const std::string& url) {
    if (callbacks.openAddress) callbacks.openAddress(url);
}

void QLM_OS::ExitToolkit() {
    if (callbacks.exitToolkit) callbacks.exitToolkit();
}

void QLM_OS::ShowFinalMessage(const std::string& text) {
    if (IsMainThread() && callbacks.messageBox) MessageBoxText(text);
    else std::fprintf(stderr, "%s\n", text.c_str());
}

void QLM_Exit(int status) {
    // A worker inside a crunch, or one that failed, never comes to an end that could be waited for.
    if (QLM_OS::IsMainThread() && !QLM_IsFailureUnderWay() && !QLM_IsInsideCrunch()) {
        QLM_OS::Get().ExitToolkit();
        QLM_ShutdownCrunchers();
    }
    QLM_EndLogging();
    std::fflush(nullptr);
#ifdef QLM_LEAK_CHECK
    __lsan_do_leak_check();
#endif
    _exit(status);
}

void QLM_ExitWithMessage(const std::string& text) {
    QLM_OS::Get().ShowFinalMessage(text);
    QLM_Exit(1);
}
