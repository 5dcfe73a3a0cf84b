#pragma once
// Materials, their channels and the links from channels to maps.

#include "Core/Objects/QLM_BaseClass.h"

#include <set>

class QLM_MaterialMapSource;

/// One channel of a material: strength, offset, colour and an optional map.
class QLM_MaterialChannel : public virtual QLM_UserAsset {
  public:
    explicit QLM_MaterialChannel(const std::string& name);
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    /// Sets what the channel uses, and its range, from its name.
    void UpdateChannelKindFlags();

    uint32_t MapBindingID = 0; ///< of its own object's list
    bool UsesStrength = true, UsesColor = true, UsesOffset = false;
    float RangeMin = 0.0f, RangeMax = 1.0f, Strength = 1.0f, Offset = 0.0f;
    float Color[3] = {1.0f, 1.0f, 1.0f};
    int32_t TextureIndex = -1;
    std::string mapFileName; ///< a file named by an importer whose map isn't loaded (yet)
};

/// Seven channels by name: Color, Transparency, Bump, Displacement, Specular, Ambient, Glossy.
class QLM_Material : public virtual QLM_UserAsset {
  public:
    QLM_Material();
    ~QLM_Material() override;
    int GetChildCount() const override { return channels.Count(); }
    QLM_SafePtr<QLM_BaseClass> GetChild(int index) const override;
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    QLM_SafePtr<QLM_MaterialChannel> FindChannel(const std::string& name) const;
    /// Appends a channel; the material owns it.
    QLM_MaterialChannel* AddChannel(const std::string& name);
    /// Looks the seven members up again; after every change of `channels`.
    void RefreshChannelPointers();
    bool HasMapInChannel(uint32_t bindingID) const;
    /// Takes over strength, offset, colour and map of each channel; makes the missing ones.
    void CopyFrom(const QLM_Material& material);

    QLM_SafePtr<QLM_MaterialChannel> Color, Bump, Transparency, Displacement, Specular, Glossy, Ambient;
    int32_t MaterialIndex = -1;
    QLM_List<QLM_SafePtr<QLM_MaterialChannel>> channels; ///< owned
};

/// The link from the channels of one object to one source.
class QLM_MaterialMapBinding : public virtual QLM_BaseClass {
  public:
    QLM_MaterialMapBinding() { ReAddToIDMap(); }
    /// The record is the line "ID" alone; the channels of its object name it by that.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    QLM_MaterialMapSource* GetSource() const; ///< null when gone
    uint32_t SourceID = 0;
    uint32_t recordID = 0; ///< the ID that it had when the record was written, 0 without a record
    bool inUse = true, live = true;
    int32_t value = -1; ///< a map's number in a file that is being read
    std::vector<int32_t> polygons; ///< polygons whose material uses the map, ascending
};

/// The bindings of one object; owns them.
class QLM_MaterialMapList : public QLM_List<QLM_MaterialMapBinding*>, public virtual QLM_BaseClass {
  public:
    ~QLM_MaterialMapList() override;
    QLM_MaterialMapBinding* FindByID(uint32_t id) const;
    QLM_MaterialMapBinding* FindBySource(uint32_t sourceID) const;
    /// Deletes the bindings to these sources; no channel may name them any more.
    void DeleteBindings(const std::set<uint32_t>& sourceIDs);
    /// The binding of a material's channel; null for none.
    QLM_MaterialMapBinding* FindByChannel(const QLM_Material& material, const std::string& channel) const;
};

/// The map bound to a channel, null for none. `list` is that of the material's object.
QLM_MaterialMapSource* QLM_GetChannelMap(const QLM_MaterialMapList& list, const QLM_MaterialChannel* channel);
