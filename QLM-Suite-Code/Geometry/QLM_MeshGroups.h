#pragma once
// A mesh's polygon groups.

#include "Core/Objects/QLM_List.h"
#include "Engine/QLM_TreeGroup.h"
#include "Geometry/QLM_MeshContainer.h"

class QLM_Group2;

/// The tree that owns a mesh's polygon groups.
class QLM_Group2List : public QLM_TopTreeGroup {};

/// A polygon names its group by the group's index, the order in which the groups were added. Main thread.
class QLM_MeshGroupContainer : public QLM_MeshContainerMesh {
  public:
    QLM_MeshGroupContainer();
    int AddGroup(QLM_Group2* group); ///< takes ownership; returns the index
    QLM_Group2* GetGroup(int index) const;
    int GetGroupCount() const { return groups.Count(); }
    int FindGroupByName(const std::string& name) const; ///< -1 when absent
    QLM_RootClassQueue<QLM_Group2*> GetGroups(); ///< in tree order
    QLM_Group2List* GetGroupTree() { return tree.Get(); }
    /// Gives each group its vertices: those of its polygons and of the polygons of groups whose name has its name as
    /// a word. SharedWithEarlier tells which of them a group before it in the tree has too. Needs the polygons of each
    /// vertex.
    void ResolveGroupVertexMaps();

  private:
    QLM_Owned<QLM_Group2List> tree;
    QLM_List<QLM_Group2*> groups; ///< by index
};
