#pragma once
// What the logger, the failure road and the threads share behind their public headers.

#include <string>
#include <string_view>

/// The characters as they lie in the log file; works on bytes, so UTF-8 passes. Any thread.
std::string QLM_SubstituteForLog(std::string_view text);
/// One character of the substitution; safe in a signal handler.
char QLM_SubstituteCharForLog(char c);

/// Writes "Exception: " with the text and closes the file. Waits at most a second for the logger's lock.
void QLM_LogFailureAndClose(const std::string& text);
/// Empties the logger's buffer and writes `text` behind it without a lock; for signal handlers only.
void QLM_LogFromSignalHandler(const char* text);
/// Puts the level in force to 0, so that no further scope opens.
void QLM_SilenceScopes();
bool QLM_IsLoggerCreated();

/// True on the calling thread's road from a failure to the end of the process.
bool QLM_IsReportingFailure();

/// Shows `name` as the calling thread's function until it is called with null; keeps only the pointer, no lock.
void QLM_SetThreadFunctionName(const char* name);
/// The crunch name, else the registered name of the calling thread; safe in a signal handler.
const char* QLM_CurrentThreadFunctionName();

/// Routes SIGSEGV and its kin to the failure report; main thread.
void QLM_InstallSignalHandlers();
/// Puts the handlers back that were there before; nothing without an installation.
void QLM_RestoreSignalHandlers();

/// Gives the calling thread a stack of its own for signal handlers while it lives.
class QLM_SignalStack {
  public:
    explicit QLM_SignalStack(size_t size);
    ~QLM_SignalStack();
    QLM_SignalStack(const QLM_SignalStack&) = delete;
    QLM_SignalStack& operator=(const QLM_SignalStack&) = delete;

  private:
    struct State;
    State* state;
};
