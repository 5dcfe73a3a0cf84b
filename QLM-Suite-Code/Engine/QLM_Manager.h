#pragma once
// Base of the managers and their table.

#include "Core/Objects/QLM_BaseClass.h"

/// A long-lived service of the engine. All operations on the main thread.
class QLM_Manager : public virtual QLM_BaseClass {
  public:
    virtual void Initialize() {}                       ///< after all managers exist
    virtual void OnIdle() {}                           ///< once an idle pass
    virtual void Clear() {}                            ///< drops everything tied to the current project
    virtual bool DependsOnShape() const { return false; }
    virtual void AfterClear() {}                       ///< sets up defaults for an empty project
};
