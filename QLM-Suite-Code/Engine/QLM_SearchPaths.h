#pragma once
// Folders in which missing files are looked for.

#include "Core/Objects/QLM_BaseClass.h"

/// One folder, normalised; owned by its list.
class QLM_SearchPath : public virtual QLM_BaseClass {
  public:
    explicit QLM_SearchPath(const std::string& path, bool recursive = false);
    std::string path;
    bool recursive;
};

/// An owning list without doubles; an empty path is not taken.
class QLM_SearchPaths : public QLM_List<QLM_SearchPath*> {
  public:
    QLM_SearchPaths() = default;
    QLM_SearchPaths(const QLM_SearchPaths&) = delete;
    QLM_SearchPaths& operator=(const QLM_SearchPaths&) = delete;
    ~QLM_SearchPaths() override;
    /// A path that is there already only becomes recursive when asked.
    void AddPath(const std::string& path, bool recursive = false);
    void DeleteAll();
};
