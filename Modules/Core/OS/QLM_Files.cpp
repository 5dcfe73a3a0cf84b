#include "Core/OS/QLM_Files.h"

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/QLM_TempFileTracker.h"
#include "Core/OS/String_Functions.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Letters for names of temporary files. A source of its own, so that no name ever moves a seeded sequence.
char RandomLetter() {
    static std::mutex lock;
    static std::mt19937_64 generator(QLM_Clock::RealNanoseconds() ^ static_cast<uint64_t>(getpid()) << 40);
    std::lock_guard guard(lock);
    return static_cast<char>('A' + generator() % 26);
}

/// Creates an empty file "<folder><ten capitals>.<extension>" that wasn't there before; empty when that fails.
std::string CreateRandomFile(const std::string& folder, const std::string& extension, mode_t mode) {
    for (;;) {
        std::string stem(10, ' ');
        for (char& c : stem) c = RandomLetter();
        std::string path;
        path.append(folder).append(stem).append(".").append(extension);
        const int descriptor = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode);
        if (descriptor >= 0) {
            close(descriptor);
            return path;
        }
        if (errno != EEXIST && errno != EINTR) return {};
    }
}

mode_t ModeOf(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

/// Opens what the platform calls a file. A directory is none, though fopen would take it, nor is a pipe, whose other end
/// might never come.
FILE* OpenPlain(const std::string& path, const std::string& mode) {
    const mode_t kind = ModeOf(path);
    return S_ISDIR(kind) || S_ISFIFO(kind) ? nullptr : std::fopen(path.c_str(), mode.c_str());
}

FILE* OpenFromArchive(std::string_view path, const std::string& mode) {
    std::string archive, inner;
    if (!QLM_SplitArchivePath(path, archive, inner)) return nullptr;
    const std::string temporary = QLM_MakeTempFileName(QLM_OS::GetTempPath(), "tmp");
    if (temporary.empty()) return nullptr;
    FILE* file = nullptr;
    if (ExtractSingleFileFromZipFile(archive, inner, temporary)) file = OpenPlain(temporary, mode);
    if (file) QLM_TempFileTracker::Get().Add(file, temporary);
    else QLM_DeleteFile(temporary);
    return file;
}

/// The file that a link stands for, so that the link itself survives being written to.
std::string FollowLink(const std::string& path) {
    char target[PATH_MAX];
    return realpath(path.c_str(), target) ? target : path;
}

} // namespace

bool QLM_FileExists(std::string_view path) { return S_ISREG(ModeOf(QLM_ResolveCase(path))); }
bool QLM_FolderExists(std::string_view path) { return S_ISDIR(ModeOf(QLM_ResolveCase(path))); }
bool QLM_DeleteFile(std::string_view path) { return unlink(QLM_ResolveFolderCase(path).c_str()) == 0; }

bool QLM_CreateDirectory(std::string_view path) {
    const std::string folder = QLM_ResolveFolderCase(QLM_NormalizeFolder(path));
    for (size_t end = folder.find('/', 1); end != folder.npos; end = folder.find('/', end + 1))
        mkdir(folder.substr(0, end).c_str(), 0777); // an existing one is as good
    return S_ISDIR(ModeOf(folder));
}

FILE* QLM_fopen(std::string_view path, const char* mode) {
    const std::string lower = QLM_ToLower(QLM_Trim(mode ? mode : ""));
    if (lower.empty()) QLM_RaiseError("invalid ( blank ) mode in QLM_fopen()");
    if (lower[0] != 'r') return OpenPlain(QLM_ResolveFolderCase(path), lower);
    FILE* file = OpenPlain(QLM_ResolveCase(path), lower);
    return file ? file : OpenFromArchive(path, lower);
}

int QLM_fclose(FILE* file) {
    const std::string temporary = QLM_TempFileTracker::Get().Take(file);
    const int result = std::fclose(file);
    if (!temporary.empty()) QLM_DeleteFile(temporary);
    return result;
}

std::string QLM_MakeTempFileName(const std::string& folder, const std::string& extension) {
    return CreateRandomFile(QLM_NormalizeFolder(folder), extension, 0600);
}

QLM_SafeFileWriter::QLM_SafeFileWriter(const std::string& targetIn)
    : target(FollowLink(QLM_ResolveFolderCase(targetIn))) {
    const mode_t mode = ModeOf(target);
    if (mode != 0 && !S_ISREG(mode)) return;
    temporary = CreateRandomFile(QLM_FolderOf(target), "tmp", 0666);
    if (temporary.empty()) return;
    file = std::fopen(temporary.c_str(), "w+b");
    if (mode != 0) chmod(temporary.c_str(), mode & 07777);
}

QLM_SafeFileWriter::~QLM_SafeFileWriter() {
    if (file) std::fclose(file);
    if (!temporary.empty()) unlink(temporary.c_str());
}

bool QLM_SafeFileWriter::Finish() {
    if (!file) return isWhole;
    isWhole = std::fflush(file) == 0 && !std::ferror(file);
    isWhole = fsync(fileno(file)) == 0 && isWhole;
    isWhole = std::fclose(file) == 0 && isWhole;
    file = nullptr;
    return isWhole;
}

bool QLM_SafeFileWriter::Commit() {
    if (!Finish() || std::rename(temporary.c_str(), target.c_str()) != 0) return false;
    temporary.clear();
    isWhole = false;
    return true;
}
