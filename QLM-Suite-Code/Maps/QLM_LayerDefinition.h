#pragma once
// What map layers and display groups share: a strength and a state.

#include "Engine/QLM_Union.h"

#include <vector>

/// Main thread. A locked layer that gets hidden is hidden: there is one state.
class QLM_LayerDefinition : public virtual QLM_BaseClass {
  public:
    enum State : int32_t { Normal = 0, Locked = 1, Hidden = 2 };
    /// Full strength, normal state.
    virtual void Reset();
    virtual void OnChanged() {}
    virtual void Lock() { state = Locked; OnChanged(); }
    virtual void Unlock() { if (state == Locked) { state = Normal; OnChanged(); } }
    virtual void Hide() { state = Hidden; OnChanged(); }
    virtual void Unhide() { if (state == Hidden) { state = Normal; OnChanged(); } }
    virtual bool IsLocked() const { return state == Locked; }
    virtual bool IsHidden() const { return state == Hidden; }
    virtual std::string GetDisplayName() const { return GetName(); }
    // What a list shows beside the name: two captions with a value each.
    virtual std::string GetValueText() const { return "undef"; }
    virtual std::string FormatValue() const { return {}; }
    virtual std::string GetSecondValueText() const { return "undef"; }
    virtual std::string FormatSecondValue() const { return {}; }
    /// The lines "State" and "Strength", which every layer's record carries inline.
    void SaveLayerDefinition(FILE* stream);
    /// Takes one line: "State" (0..2, else ignored), "Strength" (clamped to its limits), the older "Locked" and
    /// "Hidden"; and the block "LayerDefinition" around them. True when it was one of these.
    bool ConsiderLayerDefinition(FILE* stream, const std::string& key, const std::string& value);

    float Strength = 1.0f, MinStrength = 0.0f, MaxStrength = 1.0f;
    int32_t state = Normal;

  private:
    bool insideDefinition = false; ///< while a block "LayerDefinition" is read; one in another isn't taken
};

/// The tree of one kind of layers, with the current one. Main thread.
template <class Layer> class QLM_LayerGroup : public QLM_UnionGroup<Layer> {
  public:
    /// Folders are flattened in tree order.
    std::vector<Layer*> GetLayers() {
        std::vector<Layer*> layers;
        for (auto queue = this->template GetItemQueue<Layer>(); !queue.IsEmpty(); queue.Pop()) layers.push_back(queue);
        return layers;
    }
};
