#pragma once
// Operations of the user on materials and their channels.

#include "Engine/QLM_Manager.h"
#include "Maps/QLM_MaterialSets.h"

#include <map>
#include <string>

class QLM_MaterialMapSource;
class QLM_Object;

/// Acts on the selected materials: those that are marked, whichever object they belong to. Main thread.
class QLM_MaterialManager : public QLM_Manager {
  public:
    QLM_MaterialManager();
    ~QLM_MaterialManager() override;
    void Clear() override;

    QLM_List<QLM_Material*> GetSelectedMaterials();
    /// Makes one material the selected one; null selects none.
    void SelectMaterial(QLM_Material* material);

    /// Gives the current object a material with a name of its own and the selected polygons: those whose vertices all
    /// weigh more than 0.299. Null with a message when there is no object.
    QLM_Material* CreateNewMaterial();
    /// Gives the selected polygons of its object to the selected material.
    void AssignMaterialToPolygons();
    /// Deletes the selected materials; their polygons go to the first that is left, or to a new "default".
    void DeleteMaterials();
    /// Keeps a copy of the selected material, with its maps, for PasteMaterial.
    void CopyMaterial();
    void PasteMaterial();

    /// The materials that share a map with this one: those of its subset in the same object, or it alone. Named after
    /// the subset or the material; sizes stay as they are.
    void FindMapGroup(QLM_Material* material, const std::string& channel, MapGroupInfo& group);
    /// Binds the map to the channel of every material in the group; one that has no such channel gets it.
    void AssignMap(const MapGroupInfo& group, QLM_MaterialMapSource* map);
    /// Makes a map of the group's name and size in white, and binds it.
    QLM_MaterialMapSource* CreateMap(const MapGroupInfo& group);
    /// Unbinds the channel of every material in the group; the maps stay.
    void RemoveMap(const MapGroupInfo& group);
    /// What a map that was dropped on a material does: binds it to the channel that the current viewport shows, of all
    /// materials of the object or of that one's group, as the user says. A null material was missed.
    void DropMap(QLM_MaterialMapSource* map, QLM_Material* material);

    /// Marks the object's materials with the set that fits; see QLM_MaterialSets::ApplyBest.
    bool ApplyMaterialSets(QLM_Object* object);

  private:
    QLM_Owned<QLM_Material> clipboard;             ///< named "__QLM_EMPTY__" while it holds nothing
    std::map<std::string, uint32_t> clipboardMaps; ///< source of each channel that had one
};
