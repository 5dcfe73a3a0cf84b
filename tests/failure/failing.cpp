// A program without windows that plays a script, says "ready" and then fails as its command line asks.
// usage: failing SCRIPT OUT FAILURE ANSWER

#include "App/QLM_CompositionRoot.h"
#include "App/QLM_Recovery.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_Threads.h"
#include "Engine/QLM_Events.h"
#include "Headless/QLM_HeadlessShell.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

constexpr const char* BadLuck = "bad luck";
std::string failure, answerWord;

/// A read through null that the compiler can't foresee.
void ReadThroughNull() {
    static int* volatile nowhere = nullptr;
    const volatile int value = *nowhere;
    static_cast<void>(value);
}

[[noreturn]] void Hang() {
    for (;;) pause();
}

void StartWorker(void (*function)()) {
    uint32_t id = 0;
    QLM_StartThread(id, function, QLM_ThreadPriority::Normal, "Faulty_ThreadFunc");
}

void Throw() { throw std::runtime_error(BadLuck); }

/// The worker keeps the lock of every map, as one does that failed inside a foreign library.
void ThrowWithLocks() {
    for (QLM_MaterialMapSource* map : QLM_GetManagers().GetMapManager()->GetMaps()) map->GetLock().Lock();
    Throw();
}

/// Fails inside the handler of an event.
int OnEvent(QLMEvent&) {
    const std::map<std::string, std::function<void()>> failures = {
        {"throw", Throw},
        {"raise", [] { QLM_RaiseError("bad %s", "luck"); }},
        {"segv", ReadThroughNull},
        {"worker-throw", [] { StartWorker(Throw); }},
        {"worker-throw-locked", [] { StartWorker(ThrowWithLocks); }},
        {"worker-segv", [] { StartWorker(ReadThroughNull); }},
        {"worker-throw-hung", [] { StartWorker(Throw); Hang(); }},
        {"worker-segv-hung", [] { StartWorker(ReadThroughNull); Hang(); }},
        {"wait", [] {}},
    };
    failures.at(failure)();
    return 1;
}

/// Shows a question as a line and answers it by the command line's word for this one.
bool Ask(const std::string&, const std::string& text) {
    std::fprintf(stderr, "ASK: %s\n", text.c_str());
    const bool second = text.starts_with("Are you sure");
    if (answerWord == "never") Hang();
    if (answerWord == "fail") ReadThroughNull();
    if (answerWord == "cancel") return second;
    return answerWord == "ok";
}

void SetCallbacks() {
    QLM_OSCallbacks callbacks;
    callbacks.printMessage = [](const std::string& text) { std::fprintf(stderr, "MESSAGE: %s\n", text.c_str()); };
    callbacks.messageBox = [](const std::string&, const std::string& text) { std::fprintf(stderr, "BOX: %s\n", text.c_str()); };
    callbacks.askOkCancel = callbacks.askYesNo = Ask;
    QLM_OS::Get().SetCallbacks(std::move(callbacks));
}

/// The idle loop of a shell.
[[noreturn]] void RunForEver() {
    for (;;) {
        try {
            QLM_GetEngine()->IdlePass();
        } catch (const std::exception& exception) {
            QLM_ReportFailure(exception.what());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    failure = argv[3];
    answerWord = argv[4];
    QLM_StartOptions options;
    options.applicationDirectory = QLM_BINARY_DIR "/";
    options.useUserSettings = false;
    options.threads = 2;
    options.seed = 1;
    std::string error;
    if (!QLM_StartProgram(options, error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 2;
    }
    if (QLM_RunHeadlessScript(argv[1], argv[2]) != 0) return 2;
    SetCallbacks();
    QLM_SetFailureHook(QLM_TryToSaveAfterException);
    QLM_StartStateDumpThread();
    QLM_InstallTerminationHandler();
    QLM_PostEvent(new QLMEvent(OnEvent, 0, -1));
    std::printf("ready\n");
    std::fflush(stdout);
    if (failure == "hung") Hang();
    RunForEver();
}
