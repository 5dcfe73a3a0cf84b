#include "App/QLM_Recovery.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/OBJ/QLM_ObjWriter.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <set>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds OfferPatience(30);
constexpr double LockPatienceSeconds = 1.0;
constexpr int TerminatedStatus = 143; ///< what a shell shows for a process that SIGTERM ended

std::atomic<bool> underWay{false};

/// What a save brought about.
struct Rescue {
    std::string folder; ///< with its separator; empty when none could be made
    std::vector<std::string> saved, skipped;
};

[[noreturn]] void BlockForEver() {
    for (;;) pause();
}

std::vector<QLM_MaterialMapSource*> ChangedMaps() {
    std::vector<QLM_MaterialMapSource*> changed;
    if (QLM_MapManager* maps = QLM_GetManagers().GetMapManager())
        for (QLM_MaterialMapSource* map : maps->GetMaps())
            if (map->HasPixels() && map->HasUnsavedChanges()) changed.push_back(map);
    return changed;
}

std::vector<QLM_Object*> AllObjects() {
    std::vector<QLM_Object*> all;
    if (QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager())
        for (QLM_Object* object : objects->GetObjects(false))
            if (object->GetMesh()) all.push_back(object);
    return all;
}

/// The first number that is free, so that no failure destroys what an earlier one saved. Empty when no folder can be made.
std::string MakeRecoveryFolder() {
    for (const std::string& base : {QLM_OS::GetDocumentsDirectory(), QLM_OS::GetTempPath()}) {
        std::string folder;
        int number = 0;
        do folder = QLM_FormatText("%sQuillmere-Recovery.%d/", base, ++number);
        while (QLM_FolderExists(folder));
        if (QLM_CreateDirectory(folder)) return folder;
    }
    return {};
}

/// Names of files of one folder, each used once whatever its case.
class FileNames {
  public:
    std::string Take(const std::string& stem, const char* extension) {
        std::string name = stem + extension;
        for (int number = 2; !taken.insert(QLM_ToLower(name)).second; ++number)
            name = stem + "-" + std::to_string(number) + extension;
        return name;
    }

  private:
    std::set<std::string> taken;
};

/// A lock that is given up after a while: whoever failed may hold it for ever.
class TimedLock {
  public:
    explicit TimedLock(ThreadLocker& lockerIn) : locker(lockerIn), held(lockerIn.TryLockFor(LockPatienceSeconds)) {}
    ~TimedLock() { if (held) locker.Unlock(); }
    TimedLock(const TimedLock&) = delete;
    TimedLock& operator=(const TimedLock&) = delete;
    bool IsHeld() const { return held; }

  private:
    ThreadLocker& locker;
    const bool held;
};

/// Runs one step of the save; what it throws or returns is the reason for skipping the item.
template <class F> void SaveItem(Rescue& rescue, const std::string& fileName, F step) {
    QLM_SetFailureAlarm(true);
    std::string reason;
    try {
        reason = step(rescue.folder + fileName);
    } catch (const std::exception& failure) {
        reason = failure.what();
    } catch (...) {
        reason = "unknown exception";
    }
    if (reason.empty()) rescue.saved.push_back(fileName);
    else rescue.skipped.push_back(fileName + " (" + reason + ")");
}

void SaveMap(Rescue& rescue, QLM_MaterialMapSource* map, FileNames& names) {
    const std::string name = map->GetName();
    const bool isPng = QLM_CompareNoCase(QLM_ExtensionOf(name), "png") == 0;
    const std::string fileName = names.Take(isPng ? QLM_StemOf(name) : name, ".png");
    SaveItem(rescue, fileName, [map, &fileName](const std::string& path) -> std::string {
        const TimedLock lock(map->GetLock()), maskLock(map->Mask.GetLock());
        if (!lock.IsHeld() || !maskLock.IsHeld()) return "the map is in use";
        std::string error;
        if (!map->SaveToFile(path, error)) return error;
        // The materials of the objects name their maps: they are to find the rescued picture.
        map->SetNameText(fileName);
        return {};
    });
}

void SaveObject(Rescue& rescue, QLM_Object* object, FileNames& names) {
    SaveItem(rescue, names.Take(object->GetName(), ".obj"), [object](const std::string& path) -> std::string {
        std::string failedPath;
        if (QLM_WriteObjFile(object->GetMesh(), path, {}, failedPath)) return {};
        return failedPath + " can't be written";
    });
}

/// The log's place is taken by the next start's, so a copy lies beside the files; and a page that says what they are.
void WriteReport(const Rescue& rescue, const std::string& text, const std::string& logPath) {
    std::error_code failure;
    if (!logPath.empty())
        std::filesystem::copy_file(QLM_NativePath(logPath), rescue.folder + "Quillmere-Log.txt", failure);
    FILE* file = QLM_fopen(rescue.folder + "Quillmere-Report.txt", "w");
    if (!file) return;
    std::fprintf(file, "%s\n", text.c_str());
    for (const std::string& name : rescue.saved) std::fprintf(file, "saved: %s\n", name.c_str());
    for (const std::string& name : rescue.skipped) std::fprintf(file, "not saved: %s\n", name.c_str());
    std::fprintf(file, "log: %s\n", logPath.c_str());
    QLM_fclose(file);
}

/// Maps first: the objects' material files name them.
Rescue SaveEverything(const std::string& text, const std::string& logPath) {
    Rescue rescue;
    rescue.folder = MakeRecoveryFolder();
    if (rescue.folder.empty()) return rescue;
    FileNames names;
    for (QLM_MaterialMapSource* map : ChangedMaps()) SaveMap(rescue, map, names);
    for (QLM_Object* object : AllObjects()) SaveObject(rescue, object, names);
    WriteReport(rescue, text, logPath);
    return rescue;
}

std::string PlainReport(const std::string& text, const std::string& logPath) {
    return "The following error occured...\n\n" + text +
           "\n\nAn error report has been saved to the following location...\n\n" + logPath +
           "\n\nPlease send this file to Quillmere technical support to help us solve the issue.";
}

std::string RescueReport(const std::string& text, const Rescue& rescue, const std::string& logPath) {
    std::string report = "The following error occured...\n\n" + text +
                         "\n\nThe current project has been saved as...\n\n" + rescue.folder;
    for (const std::string& name : rescue.skipped) report += "\nnot saved: " + name;
    return report + "\n\nand an error report file has been saved as...\n\n" + logPath +
           "\n\n( Depending on the severity of the error, it may or may not reload properly )\n\nPlease send these files "
           "to Quillmere technical support to help us solve the issue.";
}

[[noreturn]] void SaveAndEnd(const std::string& text, const std::string& logPath) {
    const Rescue rescue = SaveEverything(text, logPath);
    QLM_SetFailureAlarm(false);
    QLM_ExitWithMessage(rescue.saved.empty() && rescue.skipped.empty() ? PlainReport(text, logPath)
                                                                        : RescueReport(text, rescue, logPath));
}

/// Asks on the main thread. When no answer comes a thread of its own saves and ends the process, whatever the question
/// does meanwhile: the toolkit may be what failed.
bool AskInTime(const char* question, bool yesNo, const std::string& text, const std::string& logPath) {
    std::mutex mutex;
    std::condition_variable changed;
    bool answered = false, expired = false;
    QLM_SetFailureAlarm(false);
    std::thread watchdog([&] {
        {
            std::unique_lock<std::mutex> guard(mutex);
            if (changed.wait_for(guard, OfferPatience, [&] { return answered; })) return;
            expired = true;
        }
        SaveAndEnd(text, logPath);
    });
    const bool answer = QLM_OS::Get().AskText(question, yesNo);
    {
        std::lock_guard<std::mutex> guard(mutex);
        answered = true;
    }
    if (expired) BlockForEver();
    changed.notify_all();
    watchdog.join();
    QLM_SetFailureAlarm(true);
    return answer;
}

/// Asks whether to save, and again before giving all up.
bool OfferToSave(const std::string& text, const std::string& logPath) {
    return AskInTime("An error occurred and the program must terminate. Would you like to attempt to save the project now?\n\n"
                     "In many cases, THE PROJECT MAY BE RECOVERABLE.\n\n"
                     "If this is a large project, it may take a while to save.\n\n"
                     "PLEASE DO NOT TERMINATE THE PROCESS while the file is saving or you will not be able to recover it.\n\n"
                     "Click OK to attempt to save the current project.\nClick Cancel to quit immediately.",
                     false, text, logPath) ||
           !AskInTime("Are you sure that you want to cancel saving the project? ", true, text, logPath);
}

/// Anything that would be lost. Unchanged objects lie on disk already.
bool IsAnythingUnsaved() {
    const QLM_Engine* engine = QLM_GetEngine();
    return engine && (engine->projectChanged || !ChangedMaps().empty());
}

} // namespace

void QLM_TryToSaveAfterException(const std::string& text) {
    const std::string logPath = QLM_GetLogPath();
    // A failure of the save itself is only told.
    if (underWay.exchange(true)) {
        QLM_SetFailureAlarm(false);
        QLM_ExitWithMessage(PlainReport(text, logPath));
    }
    std::fprintf(stderr, "Unexpected exception has occurred: %s\n", text.c_str());
    const bool canAsk = QLM_OS::IsMainThread();
    if (canAsk) {
        // Whatever the question's own loop lets through must neither act on the project nor pump from the save.
        if (QLM_Engine* engine = QLM_GetEngine()) engine->isReady = false;
        QLM_OS::Get().SetBusy(false);
    }
    if (ChangedMaps().empty() && AllObjects().empty()) {
        QLM_SetFailureAlarm(false);
        QLM_ExitWithMessage(PlainReport(text, logPath));
    }
    if (!canAsk || OfferToSave(text, logPath)) SaveAndEnd(text, logPath);
    QLM_SetFailureAlarm(false);
    QLM_ExitWithMessage("And an error report file has been saved as...\n\n" + logPath +
                        "\n\n( Depending on the severity of the error, it may or may not reload properly )\n\nPlease send "
                        "this file to Quillmere technical support to help us solve the issue.");
}

void QLM_SaveAndTerminate() {
    // A save that is under way ends the process by itself.
    if (underWay.exchange(true)) BlockForEver();
    if (IsAnythingUnsaved()) {
        const Rescue rescue = SaveEverything("The program was asked to terminate.", {});
        QLM_Log("Terminated from outside; recovery files: %s", rescue.folder);
        for (const std::string& name : rescue.skipped) QLM_Log("not saved: %s", name);
        std::fprintf(stderr, "The current project has been saved as...\n\n%s\n", rescue.folder.c_str());
    }
    QLM_Exit(TerminatedStatus);
}

bool QLM_IsRecoveryUnderWay() { return underWay; }
