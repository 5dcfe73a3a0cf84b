// The program with its window, and a thread that asks for work while nobody touches anything: an event posted from
// outside must run, and what it deletes must come to its end. Says so on standard output and goes on until a signal.

#include "App/QLM_CompositionRoot.h"
#include "App/QLM_Recovery.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/Objects/QLM_BaseClass.h"
#include "Core/Threads/QLM_Threads.h"
#include "Engine/QLM_Events.h"
#include "Interface/QLM_WX_Start.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {

std::atomic<bool> hasRun{false};

int OnEvent(QLMEvent&) {
    delete new QLM_BaseClass;
    hasRun = true;
    return 1;
}

void WaitFor(const char* what, bool (*done)()) {
    while (!done()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::printf("%s\n", what);
    std::fflush(stdout);
}

void AskForWork() {
    // Until what the start left behind is done.
    WaitFor("at rest", [] { return !QLM_AreEventsPending() && !QLM_AreDeferredItemsPending(); });
    QLM_PostEvent(new QLMEvent(OnEvent, 0, -1));
    WaitFor("the event ran", [] { return hasRun.load(); });
    WaitFor("the deleted item is gone", [] { return !QLM_AreDeferredItemsPending(); });
}

} // namespace

int main(int, char** argv) {
    if (!QLM_CanOpenDisplay()) return 2;
    QLM_StartOptions start;
    start.applicationDirectory = QLM_BINARY_DIR "/";
    start.useUserSettings = false;
    QLM_WindowOptions window;
    QLM_ConnectWindow(start, window);
    window.startFailureRoad = [] {
        QLM_SetFailureHook(QLM_TryToSaveAfterException);
        QLM_InstallTerminationHandler();
        uint32_t id = 0;
        QLM_StartThread(id, AskForWork, QLM_ThreadPriority::Normal, "AskForWork_ThreadFunc");
    };
    return QLM_RunWindow(argv[0], std::move(window));
}
