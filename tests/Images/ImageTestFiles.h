#pragma once
// Files that the image tests read and write.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string SeedPath(const std::string& name) { return QLM_SOURCE_DIR "/tests/fuzz/corpus/image/" + name; }

inline std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

/// A folder that is gone with the test.
class ScratchFolder {
  public:
    ScratchFolder() {
        char pattern[] = "/tmp/quillmere images é XXXXXX";
        path = std::string(mkdtemp(pattern)) + "/";
    }
    ~ScratchFolder() { std::filesystem::remove_all(path); }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    std::string File(const std::string& name) const { return path + name; }

  private:
    std::string path;
};
