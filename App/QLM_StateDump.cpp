// The thread that acts when the main thread may not: dumps of the state, and a termination that nobody takes up.

#include "App/QLM_Recovery.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_Threads.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <mutex>
#include <semaphore.h>

namespace {

constexpr long MainThreadPatienceSeconds = 5;

/// Posted by signals, so it is a semaphore and stands still from the start of the process to its end.
struct Semaphore {
    Semaphore() { sem_init(&handle, 0, 0); }
    void Post() { sem_post(&handle); }
    void Wait() {
        while (sem_wait(&handle) != 0 && errno == EINTR) {}
    }
    /// False when the seconds went by.
    bool WaitFor(long seconds) {
        timespec end = {};
        clock_gettime(CLOCK_REALTIME, &end);
        end.tv_sec += seconds;
        int result = 0;
        do result = sem_timedwait(&handle, &end);
        while (result != 0 && errno == EINTR);
        return result == 0;
    }
    sem_t handle;
};

Semaphore wake, answer;
std::atomic<bool> dumpWanted{false}, terminationWanted{false}, stopWanted{false}, listWanted{false};
uint32_t threadID = 0;
bool handlesTermination = false;
struct sigaction formerUser = {}, formerTermination = {};

std::mutex textMutex;          ///< guards what the two threads hand each other
std::string sceneText, notice; ///< the list for the dump; what the main thread is to print

void OnUserSignal(int) { QLM_RequestStateDump(); }

void OnTerminationSignal(int) {
    terminationWanted = true;
    wake.Post();
}

std::string DescribeScene() {
    std::string text;
    for (QLM_Object* object : QLM_GetManagers().GetObjectManager()->GetObjects(false)) {
        const QLM_Mesh* mesh = object->GetMesh();
        text += QLM_FormatText("object %s: %d vertices, %d texture vertices, %d polygons, %s\n", object->GetName(),
                               mesh ? mesh->GetVCount() : 0, mesh ? mesh->GetVTCount() : 0, mesh ? mesh->GetPCount() : 0,
                               object->GetFilePath());
    }
    for (QLM_MaterialMapSource* map : QLM_GetManagers().GetMapManager()->GetMaps())
        text += QLM_FormatText("map %s: %u x %u, %s\n", map->GetName(), map->GetWidth(), map->GetHeight(),
                               map->HasUnsavedChanges() ? "changed" : "unchanged");
    return text;
}

/// The main thread's part, in its idle pass.
void TakeUpRequests() {
    if (QLM_IsFailureUnderWay() || QLM_IsRecoveryUnderWay()) return;
    if (terminationWanted.exchange(false)) QLM_SaveAndTerminate();
    if (listWanted.exchange(false)) {
        std::string text = DescribeScene();
        {
            std::lock_guard<std::mutex> guard(textMutex);
            sceneText = std::move(text);
        }
        answer.Post();
    }
    std::string print;
    {
        std::lock_guard<std::mutex> guard(textMutex);
        print.swap(notice);
    }
    if (!print.empty()) QLM_OS::Get().PrintMessageText(print);
}

/// Memory of the process as the system counts it, a line each.
void LogMemory() {
    QLM_Log("memory free: %u MB", QLM_OS::GetFreePhysicalMemoryMB());
    FILE* status = std::fopen("/proc/self/status", "rb");
    if (!status) return;
    char line[256];
    while (std::fgets(line, sizeof line, status)) {
        std::string text = line;
        if (!text.starts_with("VmPeak:") && !text.starts_with("VmRSS:") && !text.starts_with("Threads:")) continue;
        text.erase(text.find_last_not_of('\n') + 1);
        QLM_LogText(text);
    }
    std::fclose(status);
}

/// The list of the scene; only the main thread may walk it, and it may hang.
std::string AskForScene(bool& answered) {
    listWanted = true;
    answered = answer.WaitFor(MainThreadPatienceSeconds);
    if (!answered && listWanted.exchange(false)) return "The main thread does not answer: no list of objects and maps.\n";
    if (!answered) answer.Wait(); // it had begun
    answered = true;
    std::lock_guard<std::mutex> guard(textMutex);
    return sceneText;
}

void DumpState() {
    bool mainAnswers = false;
    const std::string scene = AskForScene(mainAnswers);
    const std::string path = QLM_FormatText("%sSendMeToQuillmere.txt", QLM_OS::GetDocumentsDirectory());
    std::string message = QLM_FormatText("error writing the file...\n%s\n", path);
    if (FILE* file = QLM_fopen(path, "wb")) {
        QLM_TraceScope scope(__FILE__, __LINE__, "Dumping current state", 1);
        LogMemory();
        for (size_t begin = 0; begin < scene.size();) {
            const size_t end = scene.find('\n', begin);
            QLM_LogText(scene.substr(begin, end - begin));
            begin = end + 1;
        }
        QLM_DumpLog(file);
        if (QLM_fclose(file) == 0)
            message = QLM_FormatText("Please send the following file to Quillmere for inspection\n%s\n", path);
    }
    if (!mainAnswers) std::fprintf(stderr, "%s", message.c_str());
    std::lock_guard<std::mutex> guard(textMutex);
    notice = message;
}

void CreateThreadForStateDump_ThreadFunc() {
    QLM_TRACE(1);
    for (;;) {
        wake.Wait();
        if (stopWanted) return;
        if (terminationWanted) {
            // The main thread's next idle pass takes the wish; a busy one is not waited for long.
            while (terminationWanted && wake.WaitFor(MainThreadPatienceSeconds))
                if (stopWanted) return;
            if (terminationWanted.exchange(false)) QLM_SaveAndTerminate();
        }
        if (dumpWanted.exchange(false)) DumpState();
    }
}

void SetHandler(int signalNumber, void (*handler)(int), struct sigaction& former) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signalNumber, &action, &former);
}

} // namespace

void QLM_StartStateDumpThread() {
    if (threadID) return;
    // What was wanted of a former thread is forgotten.
    stopWanted = dumpWanted = terminationWanted = listWanted = false;
    while (sem_trywait(&wake.handle) == 0 || sem_trywait(&answer.handle) == 0) {}
    QLM_GetModuleHooks().takeUpRequests = TakeUpRequests;
    QLM_StartThread(threadID, CreateThreadForStateDump_ThreadFunc, QLM_ThreadPriority::Normal,
                    "CreateThreadForStateDump_ThreadFunc");
    SetHandler(SIGUSR1, OnUserSignal, formerUser);
}

void QLM_StopStateDumpThread() {
    if (!threadID) return;
    sigaction(SIGUSR1, &formerUser, nullptr);
    if (handlesTermination) sigaction(SIGTERM, &formerTermination, nullptr);
    handlesTermination = false;
    stopWanted = true;
    wake.Post();
    answer.Post(); // a dump that waits for this thread goes on without it
    QLM_JoinThread(threadID);
    threadID = 0;
    QLM_GetModuleHooks().takeUpRequests = nullptr;
}

void QLM_RequestStateDump() {
    dumpWanted = true;
    wake.Post();
}

void QLM_InstallTerminationHandler() {
    if (handlesTermination) return;
    handlesTermination = true;
    SetHandler(SIGTERM, OnTerminationSignal, formerTermination);
}
