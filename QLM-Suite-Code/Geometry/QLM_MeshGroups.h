#pragma once
// A mesh's polygon groups.

#include "Core/Objects/QLM_List.h"
#include "Geometry/QLM_MeshContainer.h"

class QLM_Group2;

class QLM_MeshGroupContainer : public QLM_MeshContainerMesh {
  public:
    ~QLM_MeshGroupContainer() override;
    int AddGroup(QLM_Group2* group); ///< takes ownership; returns the index
    QLM_Group2* GetGroup(int index) const;
    int GetGroupCount() const { return groups.Count(); }
    int FindGroupByName(const std::string& name) const; ///< -1 when absent
    /// Gives each group its vertices: those of its polygons and of the polygons of groups whose name has its name as
    /// a word. Needs the polygons of each vertex.
    void ResolveGroupVertexMaps();

  private:
    QLM_List<QLM_Group2*> groups;
};
