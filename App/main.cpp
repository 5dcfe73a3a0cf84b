// Process entry: the command line, then the shell that it asks for.

#include "App/QLM_CompositionRoot.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_Tablet.h"
#include "Headless/QLM_HeadlessShell.h"

#include <CLI/CLI.hpp>

#include <clocale>
#include <cstdio>
#include <cstring>

namespace {

struct Arguments {
    bool headless = false;
    std::string script, out = ".";
    int threads = 0, logLevel = 1;
};

/// Fills the arguments; the process's exit status when it is to end here, else -1.
int ParseCommandLine(int argc, char** argv, Arguments& arguments) {
    CLI::App app("Quillmere: paint and shape 3D figures", "quillmere");
    app.set_version_flag("--version", "Quillmere " QLM_VERSION);
    app.add_flag("--headless", arguments.headless, "play a script without any window");
    app.add_option("--script", arguments.script, "the script to play (.qscript)");
    app.add_option("--out", arguments.out, "folder that the script writes to")->capture_default_str();
    app.add_option("--threads", arguments.threads, "number of threads, 1 to 32")->check(CLI::Range(1, 32));
    app.add_option("--log-level", arguments.logLevel, "0 nothing, 1 normal, 2 elevated, 3 every call")->check(CLI::Range(0, 3));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (arguments.script.empty() || !arguments.headless) {
        std::fprintf(stderr, "quillmere: there is no window in this build; play a script with --headless --script FILE\n");
        return 2;
    }
    return -1;
}

int RunHeadless(const Arguments& arguments) {
    const std::string out = QLM_NormalizeFolder(arguments.out);
    if (!QLM_CreateDirectory(out)) {
        std::fprintf(stderr, "quillmere: the folder %s can't be made\n", out.c_str());
        return 1;
    }
    QLM_StartOptions options;
    options.logFolder = out;
    options.useUserSettings = false;
    options.threads = arguments.threads;
    options.seed = 1;
    QLM_InstallHeadlessCallbacks();
    QLM_SetLoggingLevel(arguments.logLevel);
    std::string error;
    if (!QLM_StartProgram(options, error)) {
        std::fprintf(stderr, "quillmere: %s\n", error.c_str());
        return 1;
    }
    const int status = QLM_RunHeadlessScript(arguments.script, out);
    QLM_StopProgram();
    return status;
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
        QLM_Exit(RunHeadless(arguments));
    } catch (const std::exception& exception) {
        QLM_ReportFailure(exception.what());
    } catch (...) {
        QLM_ReportFailure("unknown exception");
    }
    return 1;
}
