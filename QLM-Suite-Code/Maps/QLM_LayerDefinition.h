#pragma once
// What layers and display groups share, and the sets of data that hang on them.

#include "Core/Objects/QLM_BaseClass.h"

/// A layer's strength and state.
class QLM_LayerDefinition : public virtual QLM_BaseClass {
  public:
    enum State : int32_t { Normal = 0, Locked = 1, Hidden = 2 };
    virtual void OnChanged() {}
    virtual void Lock() { state = Locked; OnChanged(); }
    virtual void Unlock() { if (state == Locked) { state = Normal; OnChanged(); } }
    virtual void Hide() { state = Hidden; OnChanged(); }
    virtual void Unhide() { if (state == Hidden) { state = Normal; OnChanged(); } }
    virtual bool IsLocked() const { return state == Locked; }
    virtual bool IsHidden() const { return state == Hidden; }

    float Strength = 1.0f, MinStrength = 0.0f, MaxStrength = 1.0f;
    int32_t state = Normal;
};

/// A layer of image maps; it holds the base of every map while no other exists.
class QLM_MapLayer : public QLM_LayerDefinition {
  public:
    int32_t BlendType = 0;
    bool IsBase = false;
};
