// Process entry: the command line, then the shell that it asks for.

#include "App/QLM_CompositionRoot.h"
#include "App/QLM_Recovery.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "Headless/QLM_HeadlessShell.h"
#include "Interface/QLM_WX_Start.h"

#include <CLI/CLI.hpp>

#include <clocale>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t ScriptSeed = 1;

struct Arguments {
    bool headless = false, verbose = false, logLevelGiven = false;
    std::string script, out = ".";
    std::vector<std::string> files;
    int threads = 0, logLevel = 1;
};

int WrongUsage(const char* text) {
    std::fprintf(stderr, "quillmere: %s\n", text);
    return 2;
}

/// Fills the arguments; the process's exit status when it is to end here, else -1.
int ParseCommandLine(int argc, char** argv, Arguments& arguments) {
    CLI::App app("Quillmere: paint and shape 3D figures", "quillmere");
    app.set_version_flag("--version", "Quillmere " QLM_VERSION);
    app.add_option("files", arguments.files, "objects and pictures to open in the window");
    app.add_flag("--headless", arguments.headless, "play a script without any window");
    app.add_option("--script", arguments.script, "the script to play (.qscript), in the window without --headless");
    app.add_option("--out", arguments.out, "folder that the script writes to")->capture_default_str();
    app.add_option("--threads", arguments.threads, "number of threads, 1 to 32")->check(CLI::Range(1, 32));
    const CLI::Option* level =
        app.add_option("--log-level", arguments.logLevel, "0 nothing, 1 normal, 2 elevated, 3 every call")
            ->check(CLI::Range(0, 3));
    app.add_flag("--verbose", arguments.verbose, "print the window's messages on standard error, too");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) { return app.exit(error) == 0 ? 0 : 2; }
    arguments.logLevelGiven = level->count() > 0;
    if (arguments.headless && arguments.script.empty())
        return WrongUsage("--headless needs a script: --headless --script FILE");
    if (!arguments.script.empty() && !arguments.files.empty())
        return WrongUsage("a script imports its files itself; give either");
    return -1;
}

/// Options of a start under a script: nothing of the user's is read or saved.
bool MakeScriptOptions(Arguments& arguments, QLM_StartOptions& options) {
    arguments.out = QLM_NormalizeFolder(arguments.out);
    if (!QLM_CreateDirectory(arguments.out)) {
        std::fprintf(stderr, "quillmere: the folder %s can't be made\n", arguments.out.c_str());
        return false;
    }
    options.logFolder = arguments.out;
    options.useUserSettings = false;
    options.seed = ScriptSeed;
    QLM_SetLoggingLevel(arguments.logLevel);
    return true;
}

int RunHeadless(Arguments& arguments) {
    QLM_StartOptions options;
    options.threads = arguments.threads;
    if (!MakeScriptOptions(arguments, options)) return 1;
    QLM_InstallHeadlessCallbacks();
    std::string error;
    if (!QLM_StartProgram(options, error)) {
        std::fprintf(stderr, "quillmere: %s\n", error.c_str());
        return 1;
    }
    const int status = QLM_RunHeadlessScript(arguments.script, arguments.out);
    QLM_StopProgram();
    return status;
}

int RunWindow(const char* programName, Arguments& arguments) {
    if (!QLM_CanOpenDisplay()) {
        std::fprintf(stderr, "quillmere: there is no display; play a script with --headless --script FILE\n");
        return 1;
    }
    QLM_StartOptions start;
    start.threads = arguments.threads;
    if (!arguments.script.empty()) {
        if (!MakeScriptOptions(arguments, start)) return 1;
    } else {
        start.singleInstance = true;
        // The log of the instance that runs already must stay as it is.
        if (!QLM_TakeInstanceLock()) start.logFolder = QLM_OS::GetTempPath();
    }

    QLM_WindowOptions window;
    window.files = arguments.files;
    window.script = arguments.script;
    window.outFolder = arguments.out;
    window.verbose = arguments.verbose;
    QLM_ConnectWindow(start, window);
    window.startFailureRoad = [&arguments] {
        QLM_SetFailureHook(QLM_TryToSaveAfterException);
        QLM_InstallTerminationHandler();
        if (arguments.logLevelGiven) QLM_SetLoggingLevel(arguments.logLevel);
        else QLM_SetLoggingLevelToLoaded();
    };
    return QLM_RunWindow(programName, std::move(window));
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_NUMERIC, "C");
    if (argc > 1 && std::strstr(argv[1], "TEST_TABLET_DRIVERS")) {
        QLM_TabletSelfTest();
        return 0;
    }
    Arguments arguments;
    const int status = ParseCommandLine(argc, argv, arguments);
    if (status >= 0) return status;
    try {
        QLM_Exit(arguments.headless ? RunHeadless(arguments) : RunWindow(argv[0], arguments));
    } catch (const std::exception& exception) { QLM_ReportFailure(exception.what()); } catch (...) {
        QLM_ReportFailure("unknown exception");
    }
    return 1;
}
