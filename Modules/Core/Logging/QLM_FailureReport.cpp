// The road of a failure: from a throw, a worker or a signal to the hook or the final report.

#include "Core/Logging/QLM_LogInternals.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Clock.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_Threads.h"

#include <cinttypes>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <thread>
#include <unistd.h>

namespace {

constexpr unsigned FailureAlarmSeconds = 30;
constexpr double TakeUpSeconds = 30.0; ///< for the main thread; then the failed worker reports by itself
constexpr size_t MainSignalStackBytes = 1 << 20; ///< the whole report may run on it

std::atomic<bool> failureUnderWay{false};
std::atomic<std::thread::id> reporter{}; ///< the thread on the road to the end of the process
std::function<void(const std::string&)> failureHook;
std::atomic<bool> handlersInstalled{false};

// A failure handed over: fixed storage without a lock, since the failing thread may be inside a signal handler.
enum HandOver { Empty, Writing, Ready, Taken };
std::atomic<int> handOver{Empty};
char handedOverText[4096];

void SetFailureFlag() {
    failureUnderWay = true;
    QLM_SilenceScopes();
}

[[noreturn]] void BlockForEver() {
    for (;;) pause();
}

/// False when the seconds went by and the text still lies there.
bool WaitForTakeUp(double seconds) {
    const uint64_t end = QLM_Clock::RealNanoseconds() + static_cast<uint64_t>(seconds * 1e9);
    while (handOver == Ready) {
        if (QLM_Clock::RealNanoseconds() >= end) return false;
        const timespec interval = {0, 50'000'000};
        nanosleep(&interval, nullptr);
    }
    return true;
}

[[noreturn]] void ShowFinalReport(const std::string& text);

/// One thread walks the road; another that comes here stands still until the process ends.
void Report(const std::string& text) {
    SetFailureFlag();
    std::thread::id nobody;
    if (!reporter.compare_exchange_strong(nobody, std::this_thread::get_id())) {
        // A failure of the report itself goes no further road.
        if (QLM_IsReportingFailure()) ShowFinalReport(text);
        BlockForEver();
    }
    QLM_SetFailureAlarm(true);
    QLM_LogFailureAndClose(text);
    if (failureHook) failureHook(text);
    else ShowFinalReport(text);
}

[[noreturn]] void HandOverText(const char* text) {
    int expected = Empty;
    if (handOver.compare_exchange_strong(expected, Writing)) {
        std::snprintf(handedOverText, sizeof handedOverText, "%s", text);
        handOver = Ready;
        SetFailureFlag();
        QLM_SetFailureAlarm(false); // the wait has its own end
        expected = Ready;
        if (!WaitForTakeUp(TakeUpSeconds) && handOver.compare_exchange_strong(expected, Taken)) Report(text);
    }
    SetFailureFlag();
    BlockForEver();
}

[[noreturn]] void ShowFinalReport(const std::string& text) {
    QLM_SetFailureAlarm(false);
    if (!QLM_IsLoggerCreated()) QLM_ExitWithMessage(text);
    QLM_ExitWithMessage(
        "The following error occured...\n\n" + text +
        "\n\nAn error report has been saved to the following location...\n\n" + QLM_GetLogPath() +
        "\n\nPlease send this file to Quillmere technical support to help us solve the issue.");
}

// Signals

constexpr int handledSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr size_t handledCount = sizeof handledSignals / sizeof *handledSignals;
struct sigaction formerActions[handledCount], formerAlarmAction;
std::optional<QLM_SignalStack> mainSignalStack;

void OnAlarm(int) {
    static const char message[] = "The failure report did not come to an end.\n";
    if (write(STDERR_FILENO, message, sizeof message - 1) < 0) _exit(2);
    _exit(1);
}

void DescribeSignal(char* out, size_t size, int signalNumber, const siginfo_t* info) {
    if (signalNumber == SIGSEGV) std::snprintf(out, size, "Access violation, signal %d", signalNumber);
    else
        std::snprintf(out, size, "Unhandled exception at 0x%08" PRIxPTR ":\r\nCode 0x%08x: %s",
                      reinterpret_cast<uintptr_t>(info->si_addr), static_cast<unsigned>(signalNumber),
                      strsignal(signalNumber));
}

void OnCrash(int signalNumber, siginfo_t* info, void*) {
    // A second fault on this road ends the process at once.
    for (const int handled : handledSignals) signal(handled, SIG_DFL);
    SetFailureFlag();
    QLM_SetFailureAlarm(true);

    char text[256], head[640], thread[32];
    const bool onMain = QLM_OS::IsMainThread();
    DescribeSignal(text, sizeof text, signalNumber, info);
    std::snprintf(thread, sizeof thread, onMain ? "- Main Thread -" : "Thread:%u", QLM_CurrentThreadID());
    std::snprintf(head, sizeof head,
                  "--- ERROR ---\n%s\nError code: %u\nThread Function Name: %s\nException Code : %u\n", thread,
                  static_cast<unsigned>(signalNumber), QLM_CurrentThreadFunctionName(),
                  static_cast<unsigned>(signalNumber));
    QLM_LogFromSignalHandler(head);

    if (!onMain) HandOverText(text);
    // The fault was raised in this handler's own thread, so the signal is unblocked for the second fault's sake.
    sigset_t mask;
    sigemptyset(&mask);
    for (const int handled : handledSignals) sigaddset(&mask, handled);
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
    QLM_ReportFailure(text);
    _exit(1);
}

} // namespace

[[noreturn]] void QLM_RaiseErrorText(const std::string& text) {
    QLM_LogText("FATAL: " + text);
    throw QLM_Exception(text);
}

void QLM_SetFailureHook(std::function<void(const std::string&)> hook) { failureHook = std::move(hook); }

void QLM_ReportFailure(const std::string& text) {
    if (!QLM_OS::IsMainThread() && !QLM_IsReportingFailure()) QLM_HandOverFailure(text);
    Report(text);
}

bool QLM_IsFailureUnderWay() { return failureUnderWay.load(std::memory_order_relaxed); }

bool QLM_IsReportingFailure() { return reporter.load() == std::this_thread::get_id(); }

void QLM_HandOverFailure(const std::string& text) { HandOverText(text.c_str()); }

void QLM_TakeUpFailure() {
    if (!QLM_IsFailureUnderWay() || !QLM_OS::IsMainThread()) return;
    int expected = Ready;
    if (handOver.compare_exchange_strong(expected, Taken)) QLM_ReportFailure(handedOverText);
    // A worker that lost its patience ends the process; nothing may change under its hands.
    else if (reporter.load() != std::thread::id() && !QLM_IsReportingFailure()) BlockForEver();
}

void QLM_SetFailureAlarm(bool on) {
    if (handlersInstalled && QLM_IsFailureUnderWay()) alarm(on ? FailureAlarmSeconds : 0);
}

void QLM_InstallSignalHandlers() {
    if (handlersInstalled) return;
    handlersInstalled = true;
    mainSignalStack.emplace(MainSignalStackBytes);
    struct sigaction action = {};
    action.sa_sigaction = OnCrash;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (size_t i = 0; i < handledCount; ++i) sigaction(handledSignals[i], &action, &formerActions[i]);
    struct sigaction alarmAction = {};
    alarmAction.sa_handler = OnAlarm;
    sigaction(SIGALRM, &alarmAction, &formerAlarmAction);
}

void QLM_RestoreSignalHandlers() {
    if (!handlersInstalled) return;
    // A failure under way keeps its alarm, and after a crash it stands on the signal stack.
    if (QLM_IsFailureUnderWay()) return;
    handlersInstalled = false;
    for (size_t i = 0; i < handledCount; ++i) sigaction(handledSignals[i], &formerActions[i], nullptr);
    sigaction(SIGALRM, &formerAlarmAction, nullptr);
    mainSignalStack.reset();
}

struct QLM_SignalStack::State {
    explicit State(size_t size) : memory(new char[size]) {}
    std::unique_ptr<char[]> memory;
    stack_t former = {};
};

QLM_SignalStack::QLM_SignalStack(size_t size) : state(new State(size)) {
    stack_t own = {};
    own.ss_sp = state->memory.get();
    own.ss_size = size;
    sigaltstack(&own, &state->former);
}

QLM_SignalStack::~QLM_SignalStack() {
    if (state->former.ss_flags & SS_DISABLE) state->former.ss_size = MINSIGSTKSZ;
    sigaltstack(&state->former, nullptr);
    delete state;
}
