#pragma once
// Display groups: the user's device for hiding and locking parts of meshes.

#include "Engine/QLM_Manager.h"
#include "Geometry/QLM_DisplayGroup.h"
#include "Maps/QLM_MapLayer.h"

#include <vector>

class QLM_Mesh;

/// Owns the display groups and knows the map layers, which belong to the map manager. Main thread.
class QLM_LayerManager : public QLM_Manager {
  public:
    /// Columns with a meaning of their own. Every polygon stands in the background's.
    enum Column : int { Background = 0, HiddenLayer = 1, LockedLayer = 2, FirstUserColumn = 3 };

    QLM_LayerManager();
    ~QLM_LayerManager() override;
    void Initialize() override;
    void AfterClear() override; ///< deletes the user's groups, frees all columns

    QLM_DisplayGroupGroup* GetTree() { return tree.Get(); }
    /// The tree of map layers; null before Initialize.
    QLM_MapLayerGroup* GetMapLayerTree() const;
    /// All groups by column, the special ones first: the order of records.
    std::vector<QLM_DisplayGroup*> GetGroups();
    QLM_DisplayGroup* FindColumn(int column); ///< null for a free column
    QLM_DisplayGroup* FindGroup(const std::string& name, int occurrence = 1);
    /// One more than the greatest column in use.
    int GetColumnCount();

    /// Locks, hides or frees a group (a QLM_LayerDefinition::State); the special groups' states are fixed.
    bool SetGroupState(QLM_DisplayGroup* group, int state);

    /// Makes a group in the lowest free column and makes it current. An empty name is "New Display Group"; the name is
    /// made unique.
    QLM_DisplayGroup* CreateDisplayGroup(const std::string& name = {});
    /// Deletes a user's group and frees its column; the columns of the others stay. False for a special group.
    bool DeleteDisplayGroup(QLM_DisplayGroup* group);
    /// Asks, then deletes the marked groups and what stands in marked folders.
    void DeleteLayers();
    /// Joins user's groups in a new one, "Merged Layers", that takes state and colour of the first; null below two.
    QLM_DisplayGroup* MergeDisplayGroups(const std::vector<QLM_DisplayGroup*>& groups);

    /// Puts the selected polygons of all shown objects into the group, or takes them out. False, with a message, when
    /// nothing is selected; the background takes and gives nothing.
    bool AssignSelectionToGroup(QLM_DisplayGroup* group, bool on = true);
    /// The pass of the commands on column HiddenLayer or LockedLayer: puts the selection in or takes everything out.
    bool AssignSelectionToColumn(Column column);
    void ClearColumn(Column column);

    bool GetFlag(const QLM_DisplayGroup* group, const QLM_Mesh* mesh, int polygon) const;
    long long GetPolygonCount(const QLM_DisplayGroup* group); ///< over all objects

    /// Writes "LayerFlags": a row of bits a polygon, one bit a group in the order of GetGroups.
    void SaveLayerFlags(FILE* stream, QLM_Mesh* mesh);
    /// Reads the payload behind a line "LayerFlags" and ORs it into the mesh, whose polygon count must be set. The
    /// option INPUT_DISPLAY_GROUP_OFFSET of the reader tells how far the user's columns move up. False, after a
    /// message, when the block can't be read; one of a size that doesn't fit gives the message alone.
    bool LoadLayerFlags(FILE* stream, QLM_Mesh* mesh);
    /// The same for the older "PolygonLayerFlags", which is passed over in silence when its size doesn't fit.
    bool LoadPolygonLayerFlags(FILE* stream, QLM_Mesh* mesh);

    /// Writes a block "layer" for each group; a template leaves the hidden-from-manager ones out.
    void SaveDisplayGroups(FILE* stream, bool forTemplate);
    /// Reads the block behind a line "layer": the first of a file is the background, "Hidden Layer" and "Locked Layer"
    /// are the special groups, all others are new ones behind the last column. False when the block failed; what was
    /// read of it stays.
    bool LoadDisplayGroup(FILE* stream, const std::string& name, bool isFirst);
    /// Gives the special groups their names and states, and the tree its current group; to be called behind a load.
    void FinishLists();

    /// Has the flags of all meshes follow the groups, and redraws. During a stroke it waits for the stroke's end.
    void RebuildFlags();

  private:
    QLM_DisplayGroup* AddGroup(const std::string& name, int column);
    QLM_DisplayGroup* FindGroupForBlock(FILE* stream, const std::string& name);
    bool LoadFlags(FILE* stream, QLM_Mesh* mesh, bool isOld);

    QLM_Owned<QLM_DisplayGroupGroup> tree;
    QLM_SafePtr<QLM_MapLayerGroup> mapLayerTree;
};
