#pragma once
// The log file, the trace scopes and the road of a failure.

#include "Core/Logging/QLM_RaiseError.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

/// Level in force; a scope above it costs one atomic read and a compare.
extern std::atomic<int> QLM_LogLevelInForce;

/// Creates the logger with its file "<folder>Quillmere-Log.txt" and registers the main thread as "MAIN".
/// `installSignalHandlers` also routes SIGSEGV and its kin to the failure report.
void QLM_InitializeExceptionHandling(const std::string& logFolder, bool installSignalHandlers = true);
/// Writes "Program ending normally", puts the old handlers back, closes and destroys the logger. Once.
void QLM_EndLogging();
void QLM_RegisterThreadName(const std::string& name, uint32_t threadID);
/// "UNREGISTERED_THREAD" for an unknown thread, "LOGGER_DISABLED" without a logger. Any thread.
std::string QLM_GetThreadName(uint32_t threadID);
void QLM_SetLoggingLevel(int level); ///< clamped to 0..3
void QLM_LoadLoggingLevel(const std::string& configFolder); ///< reads loggingLevel.ini; raises the level to it
void QLM_SetLoggingLevelToLoaded();
int QLM_GetLoggingLevel();
const char* QLM_LoggingLevelName(int level);
/// Writes the location only, on the main thread.
void QLM_Heartbeat(const char* file, int line, int level);
/// One line of text into the log at any level, through the substitution; indented on workers. Any thread.
void QLM_LogText(const std::string& text);
template <class... A> void QLM_Log(const char* format, const A&... args) {
    QLM_LogText(QLM_FormatText(format, args...));
}
/// Copies the log as it lies in the file, then "END_LOG\n".
void QLM_DumpLog(FILE* file);
std::string QLM_GetLogPath();

void QLM_SetFailureHook(std::function<void(const std::string&)> hook);
/// Logs the failure, then hands over to the hook, or shows the final report and ends the process. On a thread that is
/// not the main thread it hands the text over instead. Never returns, unless the hook does. A failure of the hook
/// itself ends in the final report.
void QLM_ReportFailure(const std::string& text);
/// True once a failure is under way: waits end, scopes write nothing.
bool QLM_IsFailureUnderWay();
/// Called by a failing worker: stores the text for the main thread and blocks the worker for ever. When the main thread
/// doesn't take the failure up within 30 seconds, the worker reports it by itself.
[[noreturn]] void QLM_HandOverFailure(const std::string& text);
/// On the main thread inside waits and the idle pass: takes up a failure that a worker handed over. Elsewhere, and
/// without a failure, it does nothing.
void QLM_TakeUpFailure();
/// A failure must be reported within half a minute or the process ends. A question on the failure road switches the
/// alarm off while it stands and on again behind it; a long save switches it on anew with each step. It does nothing
/// without a failure, or where the signal handlers were not installed.
void QLM_SetFailureAlarm(bool on);

/// A stack object that writes its opening and end to the log.
class QLM_TraceScope {
  public:
    QLM_TraceScope(const char* file, int line, const char* name, int level) {
        if (level <= QLM_LogLevelInForce.load(std::memory_order_relaxed)) Open(file, line, name, level);
    }
    ~QLM_TraceScope() { if (opened) Close(); }
    QLM_TraceScope(const QLM_TraceScope&) = delete;
    QLM_TraceScope& operator=(const QLM_TraceScope&) = delete;

  private:
    void Open(const char* file, int line, const char* name, int level);
    void Close();
    bool opened = false;
    uint32_t log = 0; ///< number of the log that holds the opening
    const char* name = nullptr;
};

/// First line of functions worth a scope: QLM_TRACE(1) busy only at need .. QLM_TRACE(3) every call.
#define QLM_TRACE(level) QLM_TraceScope qlmTraceScope(__FILE__, __LINE__, __func__, level)
