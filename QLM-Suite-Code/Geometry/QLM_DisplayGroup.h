#pragma once
// A display group, and the tree that holds them.

#include "Maps/QLM_LayerData.h"
#include "Maps/QLM_LayerDefinition.h"

/// One of the user's groups of polygons that can be locked or hidden together; polygons may stand in any number of
/// them. Made and deleted by the layer manager, which is told of every change of state. Main thread.
class QLM_DisplayGroup : public QLM_LayerDefinition, public QLM_LayerDataSet, public virtual QLM_UserAsset {
  public:
    /// Has the flags of all meshes follow the new state.
    void OnChanged() override;
    /// Rigid: the vertices on a locked border stay where they are. Not rigid: they follow the free side.
    bool HasRigidEdges() const { return GetBool("displayGroups/rigidEdges"); }
    void SetRigidEdges(bool on);
    void SetColor(const float* color); ///< RGB, 0..1; clamped
    bool IsHiddenFromManager() const { return GetBool("HIDDEN_FROM_MANAGER"); }

    /// Block "layer": name, properties, state and strength inline, colour. False when left out of saving.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    int32_t Column = -1; ///< its bit in the rows of every mesh, and so its identity; -1 for a group in no list
    float Color[3] = {0.5f, 0.5f, 0.5f};
};

/// The tree "Display Groups" with the current group.
class QLM_DisplayGroupGroup : public QLM_LayerGroup<QLM_DisplayGroup> {};
