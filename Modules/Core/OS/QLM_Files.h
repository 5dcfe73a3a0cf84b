#pragma once
// Paths and files: the one place where a text from a file becomes a path of the platform. UTF-8. Any thread.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

/// "\\" becomes "/", nothing else.
std::string QLM_NativePath(std::string_view text);
/// The path as it stands if it exists, else found component by component without regard to ASCII case (exact name
/// first, then first in byte order); the native path unchanged when nothing matches. For reading.
std::string QLM_ResolveCase(std::string_view path);
/// The native path with the existing part of its folder in the case that it has on disk, so that "Runtime" is not made
/// beside "runtime"; the file name stays as given. For writing.
std::string QLM_ResolveFolderCase(std::string_view path);
/// On its own thread keeps the directory lists of QLM_ResolveCase while it lives (one import, say).
class QLM_DirectoryCacheScope {
  public:
    QLM_DirectoryCacheScope();
    ~QLM_DirectoryCacheScope();
};

/// Position of the last '/' or '\\', npos when there is none.
size_t QLM_FindLastSeparator(std::string_view path);
std::string QLM_FileNameOf(std::string_view path);  ///< behind the last separator
std::string QLM_FolderOf(std::string_view path);    ///< up to and with the last separator, empty without one
std::string QLM_StemOf(std::string_view path);      ///< file name without its last extension
std::string QLM_ExtensionOf(std::string_view path); ///< behind the last dot of the file name, empty without one
/// "\\" to "/", double separators to one, exactly one separator at the end; empty stays empty.
std::string QLM_NormalizeFolder(std::string_view path);

bool QLM_FileExists(std::string_view path);   ///< a regular file
bool QLM_FolderExists(std::string_view path); ///< a directory
bool QLM_DeleteFile(std::string_view path);
bool QLM_CreateDirectory(std::string_view path); ///< with all missing parents
/// Names in a folder in byte order, without "." and "..".
std::vector<std::string> QLM_ListFolder(std::string_view path);

/// Opens a file. A blank mode raises. Modes that read resolve case and then look into archives
/// (".zip/inner name"), extracting the member to a temporary file that QLM_fclose deletes.
FILE* QLM_fopen(std::string_view path, const char* mode);
int QLM_fclose(FILE* file);

/// File extensions that a path may pass through like a directory; "zip" is registered.
void QLM_RegisterArchiveExtension(const std::string& extension);
/// Splits at a known archive extension followed by a separator; false without one.
bool QLM_SplitArchivePath(std::string_view path, std::string& archive, std::string& inner);
bool ExtractSingleFileFromZipFile(const std::string& archive, const std::string& inner, const std::string& target);
/// Unpacks a gzip or zlib file; false with a reason when it can't, or when more than `maximum` bytes come of it.
bool QLM_GunzipFile(const std::string& source, const std::string& target, std::string& error,
                    uint64_t maximum = UINT64_MAX);

/// Creates an empty file (O_EXCL) with ten random capital letters as stem in `folder` and returns its path.
std::string QLM_MakeTempFileName(const std::string& folder, const std::string& extension);

/// Writes beside the target and renames over it on Commit; without Commit the target stays as it was. What is there and
/// is no regular file (a folder, a device, a pipe) is never replaced.
class QLM_SafeFileWriter {
  public:
    explicit QLM_SafeFileWriter(const std::string& target);
    ~QLM_SafeFileWriter();
    QLM_SafeFileWriter(const QLM_SafeFileWriter&) = delete;
    QLM_SafeFileWriter& operator=(const QLM_SafeFileWriter&) = delete;
    /// Null when the file could not be created.
    FILE* GetStream() const { return file; }
    /// The path written to until Commit, for libraries that open files themselves.
    const std::string& GetTemporaryPath() const { return temporary; }
    /// Closes what was written; false when a write or the close failed. For files that go out together: finish all,
    /// then commit all.
    bool Finish();
    /// Finishes and renames; false when a write, the close or the rename failed (the target is untouched).
    bool Commit();

  private:
    std::string target, temporary;
    FILE* file = nullptr;
    bool isWhole = false;
};
