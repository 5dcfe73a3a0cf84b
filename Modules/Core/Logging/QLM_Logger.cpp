#include "Core/Logging/QLM_Logger.h"

#include "Core/Logging/QLM_LogInternals.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Objects/ThreadLocker.h"
#include "Core/Threads/QLM_Threads.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <unistd.h>

std::atomic<int> QLM_LogLevelInForce{0};

namespace {

constexpr int LevelFull = 3;
constexpr uint32_t MainThreadID = 1;

thread_local char ownThreadName[64] = "";
thread_local const char* crunchName = nullptr;

void WriteFully(int descriptor, const char* bytes, size_t count) {
    while (count > 0) {
        const ssize_t written = ::write(descriptor, bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

/// The log file and what was last written to it. Lives for ever, so that a late scope finds a closed log at worst.
class Logger : public ThreadLocker {
  public:
    bool Open(const std::string& logFolder);
    void Close();
    void Write(std::string_view text);
    void WriteThreadChange();
    void WriteLocation(const char* file, int line);
    void WriteTextLine(const std::string& text);
    void Flush();
    void UpdateLevelInForce() {
        QLM_LogLevelInForce = created && file >= 0 && !QLM_IsFailureUnderWay() ? level : 0;
    }

    bool created = false;
    std::string path;
    std::map<uint32_t, std::string> threadNames;
    int level = 1, loadedLevel = 1;
    uint32_t generation = 0; ///< counts the logs, so that a scope never closes in another log than its own

    // Read by a signal handler: the descriptor and the bytes that wait for it.
    std::atomic<int> file{-1};
    char buffer[16384];
    std::atomic<size_t> used{0};

  private:
    uint32_t lastThread = 0;
    std::string lastFile;
    int lastLine = -1;
    uint64_t writeCount = 0;
};

Logger& TheLogger() {
    static Logger* const logger = new Logger;
    return *logger;
}

/// A failed thread may hold the lock for ever: once there is one, the wait is a second at most.
bool LockUnlessStuck(Logger& logger) {
    if (QLM_IsFailureUnderWay()) return logger.TryLockFor(1.0);
    logger.Lock();
    return true;
}

bool Logger::Open(const std::string& logFolder) {
    path = QLM_FormatText("%s%s-Log.txt", logFolder, "Quillmere");
    created = true;
    ++generation;
    level = loadedLevel = 1;
    lastThread = 0;
    lastFile.clear();
    lastLine = -1;
    writeCount = 0;
    used = 0;
    threadNames.clear();
    file = ::open(QLM_NativePath(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    UpdateLevelInForce();
    return file >= 0;
}

void Logger::Close() {
    Flush();
    const int descriptor = file.exchange(-1);
    if (descriptor >= 0) ::close(descriptor);
    UpdateLevelInForce();
}

void Logger::Flush() {
    const size_t count = used.exchange(0);
    if (file >= 0) WriteFully(file, buffer, count);
}

void Logger::Write(std::string_view text) {
    if (file < 0) return;
    for (const char c : text) {
        if (used == sizeof buffer) Flush();
        buffer[used] = QLM_SubstituteCharForLog(c);
        ++used;
    }
    ++writeCount;
    if (level > 1) Flush();
}

void Logger::WriteThreadChange() {
    const uint32_t thread = QLM_CurrentThreadID();
    if (thread == lastThread) return;
    lastThread = thread;
    lastFile.clear();
    lastLine = -1;
    Write(thread == MainThreadID ? std::string("---\nT:Main\n") : QLM_FormatText("---\nT:%u\n", thread));
}

void Logger::WriteLocation(const char* sourceFile, int line) {
    WriteThreadChange();
    if (lastFile != sourceFile) {
        lastFile = sourceFile;
        Write(std::string("F:") + sourceFile + "\n");
    }
    if (lastLine != line) {
        lastLine = line;
        Write(QLM_FormatText("L:%d\n", line));
    }
}

/// A worker's text, a further line and a text that begins like a mark of the log are indented, so that a reader can
/// tell texts from scopes.
void Logger::WriteTextLine(const std::string& text) {
    WriteThreadChange();
    const bool likeAMark = text.starts_with('{') || text.starts_with('}') || text.starts_with("---");
    std::string line = QLM_CurrentThreadID() != MainThreadID || likeAMark ? " " : "";
    for (const char c : text) {
        line += c;
        if (c == '\n') line += ' ';
    }
    Write(line + "\n");
}

} // namespace

char QLM_SubstituteCharForLog(char c) {
    if (c >= 'a' && c <= 'z') return static_cast<char>('a' + 'z' - c);
    if (c >= 'A' && c <= 'Z') return static_cast<char>('A' + 'Z' - c);
    switch (c) {
    case '\n': return '?';
    case '?': return '\n';
    case '{': return '@';
    case '}': return '!';
    case '!':
    case '@': return 'A';
    default: return c;
    }
}

std::string QLM_SubstituteForLog(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = QLM_SubstituteCharForLog(c);
    return result;
}

// Life of the log

void QLM_InitializeExceptionHandling(const std::string& logFolder, bool installSignalHandlers) {
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    if (logger.created) {
        QLM_OS::Get().MessageBox(
            "Logger has already been created. Please only call QLM_InitializeExceptionHandling() once");
        return;
    }
    if (!logger.Open(logFolder)) QLM_OS::Get().MessageBox("Failed to create  log file");
    QLM_RegisterThreadName("MAIN", MainThreadID);
    if (installSignalHandlers) QLM_InstallSignalHandlers();
}

void QLM_EndLogging() {
    Logger& logger = TheLogger();
    // Where that fails the report has closed the log.
    if (!LockUnlessStuck(logger)) return;
    if (logger.created) {
        QLM_RestoreSignalHandlers();
        if (!QLM_IsFailureUnderWay()) logger.WriteTextLine("Program ending normally");
        logger.Close();
        logger.created = false;
    }
    logger.Unlock();
}

bool QLM_IsLoggerCreated() {
    Logger& logger = TheLogger();
    if (!LockUnlessStuck(logger)) return true;
    const bool created = logger.created;
    logger.Unlock();
    return created;
}

void QLM_LogFailureAndClose(const std::string& text) {
    Logger& logger = TheLogger();
    if (!LockUnlessStuck(logger)) {
        QLM_LogFromSignalHandler(("Exception: " + text + "\n").c_str());
        return;
    }
    if (logger.created) {
        logger.WriteTextLine("Exception: " + text);
        logger.Close();
    }
    logger.Unlock();
}

void QLM_LogFromSignalHandler(const char* text) {
    Logger& logger = TheLogger();
    const int descriptor = logger.file;
    if (descriptor < 0) return;
    WriteFully(descriptor, logger.buffer, logger.used.exchange(0));
    for (const char* c = text; *c; ++c) {
        const char written = QLM_SubstituteCharForLog(*c);
        WriteFully(descriptor, &written, 1);
    }
}

void QLM_SilenceScopes() { QLM_LogLevelInForce = 0; }

void QLM_DumpLog(FILE* file) {
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    if (logger.created) {
        logger.Flush();
        if (FILE* log = std::fopen(QLM_NativePath(logger.path).c_str(), "rb")) {
            for (int c = std::fgetc(log); c != EOF; c = std::fgetc(log)) std::fputc(c, file);
            std::fclose(log);
        }
    }
    std::fputs("END_LOG\n", file);
}

std::string QLM_GetLogPath() {
    Logger& logger = TheLogger();
    if (!LockUnlessStuck(logger)) return {};
    std::string path = logger.created ? logger.path : std::string();
    logger.Unlock();
    return path;
}

// Names of threads

void QLM_RegisterThreadName(const std::string& name, uint32_t threadID) {
    if (threadID == QLM_CurrentThreadID()) std::snprintf(ownThreadName, sizeof ownThreadName, "%s", name.c_str());
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    if (logger.created) logger.threadNames[threadID] = name;
}

std::string QLM_GetThreadName(uint32_t threadID) {
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    if (!logger.created) return "LOGGER_DISABLED";
    const auto found = logger.threadNames.find(threadID);
    return found == logger.threadNames.end() ? "UNREGISTERED_THREAD" : found->second;
}

void QLM_SetThreadFunctionName(const char* name) { crunchName = name; }

const char* QLM_CurrentThreadFunctionName() {
    if (crunchName) return crunchName;
    return ownThreadName[0] ? ownThreadName : "UNREGISTERED_THREAD";
}

// Levels

void QLM_SetLoggingLevel(int level) {
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    logger.level = std::clamp(level, 0, LevelFull);
    logger.UpdateLevelInForce();
}

void QLM_LoadLoggingLevel(const std::string& configFolder) {
    long loaded = 1;
    if (FILE* file = QLM_fopen(configFolder + "loggingLevel.ini", "rb")) {
        char line[1000];
        if (std::fgets(line, sizeof line, file)) {
            char* end = line;
            const long number = std::strtol(line, &end, 10);
            if (end != line) loaded = number;
        }
        QLM_fclose(file);
    }
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    logger.loadedLevel = static_cast<int>(std::clamp(loaded, 0L, static_cast<long>(LevelFull)));
    QLM_SetLoggingLevel(std::max(logger.level, logger.loadedLevel));
}

void QLM_SetLoggingLevelToLoaded() {
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    QLM_SetLoggingLevel(logger.loadedLevel);
    if (logger.level > 1) QLM_Log("Logging level: %s", QLM_LoggingLevelName(logger.level));
}

int QLM_GetLoggingLevel() {
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    return logger.level;
}

const char* QLM_LoggingLevelName(int level) {
    switch (level) {
    case 0: return "Disabled";
    case 1: return "Normal";
    case 2: return "Elevated";
    case 3: return "Full";
    default: return "ERROR";
    }
}

// Lines

void QLM_Heartbeat(const char* file, int line, int level) {
    if (level > QLM_LogLevelInForce.load(std::memory_order_relaxed) || !QLM_OS::IsMainThread()) return;
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    if (logger.created && !QLM_IsFailureUnderWay()) logger.WriteLocation(file, line);
}

void QLM_LogText(const std::string& text) {
    Logger& logger = TheLogger();
    if (!LockUnlessStuck(logger)) return;
    if (logger.created) logger.WriteTextLine(text);
    logger.Unlock();
}

void QLM_TraceScope::Open(const char* file, int line, const char* nameIn, int level) {
    Logger& logger = TheLogger();
    ThreadLockerScope scope(&logger);
    if (!logger.created || level > logger.level || QLM_IsFailureUnderWay()) return;
    logger.WriteLocation(file, line);
    const bool onMain = QLM_CurrentThreadID() == MainThreadID;
    logger.Write(std::string(nameIn) + (onMain ? "\n{\n" : "\n"));
    name = nameIn;
    log = logger.generation;
    opened = true;
}

void QLM_TraceScope::Close() {
    Logger& logger = TheLogger();
    if (QLM_IsFailureUnderWay()) return;
    ThreadLockerScope scope(&logger);
    if (!logger.created || log != logger.generation || QLM_IsFailureUnderWay()) return;
    logger.WriteThreadChange();
    if (QLM_CurrentThreadID() == MainThreadID) logger.Write("}\n");
    else logger.Write(std::string("~") + name + "\n");
}
