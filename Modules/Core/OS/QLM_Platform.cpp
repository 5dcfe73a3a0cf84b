// What the engine asks of the machine: directories, processors, memory, the main thread.

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <pwd.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int MostThreads = 32;

std::atomic<int> threadCount{0}; // 0: as many as there are processors
std::atomic<std::thread::id> mainThread{};

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string HomeDirectory() {
    std::string home = Environment("HOME");
    if (!home.empty()) return home;
    const passwd* user = getpwuid(getuid());
    return user && user->pw_dir ? user->pw_dir : "/";
}

/// The base of all settings; a relative value is to be ignored.
std::string SettingsBase() {
    const std::string base = Environment("XDG_CONFIG_HOME");
    return QLM_NormalizeFolder(!base.empty() && base[0] == '/' ? base : HomeDirectory() + "/.config");
}

/// The desktop's documents folder as "user-dirs.dirs" names it; empty when it doesn't.
std::string DesktopDocuments() {
    FILE* file = QLM_fopen(SettingsBase() + "user-dirs.dirs", "rb");
    if (!file) return {};
    constexpr std::string_view Key = "XDG_DOCUMENTS_DIR=\"", Home = "$HOME";
    std::string line, folder;
    while (QLM_ReadLine(line, PATH_MAX, file)) {
        const std::string text = QLM_Trim(line);
        if (text.compare(0, Key.size(), Key) != 0) continue;
        folder = text.substr(Key.size(), text.rfind('"') - Key.size());
        if (folder.compare(0, Home.size(), Home) == 0) folder.replace(0, Home.size(), HomeDirectory());
    }
    QLM_fclose(file);
    return folder;
}

} // namespace

bool QLM_OS::Initialize() {
    if (applicationDirectory.empty()) {
        char path[PATH_MAX];
        const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
        if (length > 0) SetApplicationDirectory(QLM_FolderOf({path, static_cast<size_t>(length)}));
    }
    return QLM_FileExists(applicationDirectory + "Data/anchor.dat");
}

void QLM_OS::SetApplicationDirectory(const std::string& folder) { applicationDirectory = QLM_NormalizeFolder(folder); }

int QLM_OS::GetNumberOfThreads() {
    const int wanted = threadCount;
    return std::clamp(wanted > 0 ? wanted : static_cast<int>(std::thread::hardware_concurrency()), 1, MostThreads);
}

void QLM_OS::SetNumberOfThreads(int n) { threadCount = std::clamp(n, 1, MostThreads); }

std::string QLM_OS::GetConfigDirectory() { return SettingsBase() + "Quillmere/"; }

std::string QLM_OS::GetDocumentsDirectory() {
    std::string folder = Environment("XDG_DOCUMENTS_DIR");
    if (folder.empty()) folder = DesktopDocuments();
    return QLM_NormalizeFolder(QLM_FolderExists(folder) ? folder : HomeDirectory());
}

std::string QLM_OS::GetTempPath() {
    const std::string folder = Environment("TMPDIR");
    return QLM_NormalizeFolder(QLM_FolderExists(folder) ? folder : "/tmp");
}

uint32_t QLM_OS::GetFreePhysicalMemoryMB() {
    // What the kernel could hand out without swapping; the count of free pages leaves out its caches.
    if (FILE* file = std::fopen("/proc/meminfo", "rb")) {
        std::string line, key, value;
        bool found = false;
        while (!found && QLM_ReadLine(line, 256, file)) {
            QLM_SplitKeyValue(line, key, value);
            found = key == "MemAvailable:";
        }
        std::fclose(file);
        if (found) return static_cast<uint32_t>(std::strtoull(value.c_str(), nullptr, 10) / 1024);
    }
    const long pages = sysconf(_SC_AVPHYS_PAGES);
    return static_cast<uint32_t>(static_cast<uint64_t>(std::max(pages, 0L)) * sysconf(_SC_PAGESIZE) / (1 << 20));
}

void QLM_OS::SetMainThread() { mainThread = std::this_thread::get_id(); }

bool QLM_OS::IsMainThread() {
    const std::thread::id marked = mainThread;
    return marked == std::thread::id() ? syscall(SYS_gettid) == getpid() : marked == std::this_thread::get_id();
}
