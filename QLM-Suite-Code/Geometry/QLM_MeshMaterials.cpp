#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"

QLM_MeshMaterialContainer::~QLM_MeshMaterialContainer() {
    for (QLM_Material* material : materials) delete material;
}

void QLM_MeshMaterialContainer::OnAfterRawBuild() { CurrentMaterialIndex = materials.empty() ? -1 : 0; }

int QLM_MeshMaterialContainer::AddMaterial(QLM_Material* material) {
    material->MaterialIndex = materials.Count();
    materials.Add(material);
    return material->MaterialIndex;
}

void QLM_MeshMaterialContainer::SetMaterials(const QLM_List<QLM_Material*>& list) {
    materials = list;
    for (int i = 0; i < materials.Count(); ++i) materials[i]->MaterialIndex = i;
}

QLM_Material* QLM_MeshMaterialContainer::FindMaterialByName(const std::string& name) const {
    for (QLM_Material* material : materials)
        if (name == material->GetName()) return material;
    return nullptr;
}

QLM_SafePtr<QLM_Material> QLM_MeshMaterialContainer::FindMaterial(int index) const {
    if (index < 0 || index >= materials.Count()) return nullptr;
    return materials[index];
}

void QLM_MeshMaterialContainer::UpdateMapPolygonList(QLM_MaterialMapBinding* binding) {
    std::vector<bool> usesMap;
    bool any = false;
    for (const QLM_Material* material : materials) {
        usesMap.push_back(material->HasMapInChannel(binding->GetID()));
        any = any || usesMap.back();
    }
    std::vector<int32_t> polygons;
    for (int p = 0; any && p < mesh->GetPCount(); ++p) {
        const size_t index = static_cast<size_t>(mesh->GetPolygon(p).material);
        if (index < usesMap.size() && usesMap[index]) polygons.push_back(p);
    }
    polygons.shrink_to_fit();
    binding->polygons = std::move(polygons);
}

void QLM_MeshMaterialContainer::UpdateAllMapPolygonLists() {
    QLM_TRACE(2);
    for (QLM_MaterialMapBinding* binding : mapList) UpdateMapPolygonList(binding);
}
