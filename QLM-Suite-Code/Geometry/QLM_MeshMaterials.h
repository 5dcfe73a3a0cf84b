#pragma once
// A mesh's materials and the maps that its object is bound to.

#include "Geometry/QLM_MeshContainer.h"
#include "Maps/QLM_Material.h"

/// Materials by index, and the object's bindings to maps.
class QLM_MeshMaterialContainer : public QLM_MeshContainerMesh {
  public:
    ~QLM_MeshMaterialContainer() override;
    void OnAfterRawBuild() override;

    int AddMaterial(QLM_Material* material); ///< takes ownership; returns the index
    QLM_Material* FindMaterialByName(const std::string& name) const;
    const QLM_List<QLM_Material*>& GetMaterials() const { return materials; }
    void SetMaterials(const QLM_List<QLM_Material*>& list); ///< the caller deletes what left, and mends the polygons
    QLM_SafePtr<QLM_Material> FindMaterial(int index) const; ///< null when out of range
    QLM_MaterialMapList& GetMapList() { return mapList; }
    const QLM_MaterialMapList& GetMapList() const { return mapList; }
    /// Gives the binding the polygons whose material uses its map.
    void UpdateMapPolygonList(QLM_MaterialMapBinding* binding);
    void UpdateAllMapPolygonLists();
    int CurrentMaterialIndex = -1;

  private:
    QLM_List<QLM_Material*> materials;
    QLM_MaterialMapList mapList;
};
