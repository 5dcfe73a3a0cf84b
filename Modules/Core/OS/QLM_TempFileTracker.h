#pragma once
// Temporary files that vanish when they are closed.

#include "Core/Objects/ThreadLocker.h"

#include <cstdio>
#include <map>
#include <string>

/// What the tracker knows of an open temporary file.
struct QLM_TempFileTracker_Node {
    std::string path;
};

/// From open file to its path. Any thread.
class QLM_TempFileTracker : public ThreadLocker {
  public:
    static QLM_TempFileTracker& Get();

    void Add(FILE* handle, const std::string& path);
    /// Forgets the file and answers its path, empty for a file that is none of the tracker's. The caller closes the
    /// file, then deletes it: once closed, another thread's file may have the same handle.
    std::string Take(FILE* handle);

  private:
    std::map<FILE*, QLM_TempFileTracker_Node> nodes;
};
