#include "Maps/QLM_Material.h"

#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Engine.h"
#include "Maps/QLM_MaterialMapSource.h"

namespace {

const char* const ExcludeFromSaving = "excludeFromSaving";

/// Older files call the colour channel "Diffuse".
std::string CurrentChannelName(const std::string& name) { return name == "Diffuse" ? "Color" : name; }

} // namespace

QLM_MaterialChannel::QLM_MaterialChannel(const std::string& nameIn) {
    SetNameText(nameIn);
    SetBool("manager/noRename", true);
    UpdateChannelKindFlags();
}

void QLM_MaterialChannel::UpdateChannelKindFlags() {
    const std::string kind = GetName();
    UsesStrength = kind != "Color" && kind != "Ambient" && kind != "Specular";
    UsesColor = kind != "Bump" && kind != "Transparency" && kind != "Displacement" && kind != "Glossy";
    UsesOffset = kind == "Displacement";
    RangeMin = UsesOffset ? -1.0f : 0.0f;
}

bool QLM_MaterialChannel::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool(ExcludeFromSaving)) return false;
    const TStartTextFileBlock block("channel", GetName(), stream, writeBlock);
    if (!QLM_BaseClass::SaveToStream_Text(stream)) return false;
    const auto* binding = QLM_FindByID<QLM_MaterialMapBinding>(MapBindingID);
    const QLM_MaterialMapSource* source = binding ? binding->GetSource() : nullptr;
    QLM_WriteText(stream, "MapFileName", source ? source->GetMapFileName() : mapFileName);
    QLM_WriteFloat(stream, "Strength", Strength);
    QLM_WriteFloat(stream, "Offset", Offset);
    QLM_WriteVector3(stream, "Color", Color);
    QLM_WriteInt(stream, "TextureIndex", TextureIndex);
    return true;
}

bool QLM_MaterialChannel::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                              const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("Name")) {
        SetNameText(CurrentChannelName(value));
        UpdateChannelKindFlags();
    } else if (command.Is("MapFileName")) {
        command.ReadString(mapFileName);
    } else if (command.Is("Strength")) {
        command.ReadFloat(Strength);
    } else if (command.Is("Offset")) {
        command.ReadFloat(Offset);
    } else if (command.Is("Color")) {
        command.ReadVector3(Color);
    } else if (command.Is("TextureIndex")) {
        command.ReadInt(TextureIndex);
        // Maps of an imported scene are numbered behind those that are there already.
        const QLM_Engine* engine = QLM_GetEngine();
        if (TextureIndex != -1 && engine) TextureIndex += engine->GetInt("INPUT_MAP_INDEX_OFFSET");
    } else {
        command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    }
    return command.Handled();
}

QLM_Material::QLM_Material() {
    SetBool("EXPANDABLE_ITEM", true);
    for (const char* kind : {"Color", "Transparency", "Bump", "Displacement", "Specular", "Ambient", "Glossy"})
        AddChannel(kind);
    Transparency->Strength = 0.0f;
    Ambient->Strength = 0.1f;
    Specular->SetHintText("Specular Channel");
}

QLM_Material::~QLM_Material() {
    for (const QLM_SafePtr<QLM_MaterialChannel>& channel : channels) delete static_cast<QLM_MaterialChannel*>(channel);
}

QLM_MaterialChannel* QLM_Material::AddChannel(const std::string& name) {
    auto* channel = new QLM_MaterialChannel(name);
    channels.Add(channel);
    RefreshChannelPointers();
    return channel;
}

QLM_SafePtr<QLM_BaseClass> QLM_Material::GetChild(int index) const {
    if (index < 0 || index >= channels.Count()) return nullptr;
    return static_cast<QLM_MaterialChannel*>(channels[static_cast<size_t>(index)]);
}

QLM_SafePtr<QLM_MaterialChannel> QLM_Material::FindChannel(const std::string& name) const {
    for (const QLM_SafePtr<QLM_MaterialChannel>& channel : channels)
        if (name == channel->GetName()) return channel;
    return nullptr;
}

void QLM_Material::RefreshChannelPointers() {
    Color = FindChannel("Color");
    Bump = FindChannel("Bump");
    Transparency = FindChannel("Transparency");
    Displacement = FindChannel("Displacement");
    Specular = FindChannel("Specular");
    Glossy = FindChannel("Glossy");
    Ambient = FindChannel("Ambient");
}

bool QLM_Material::HasMapInChannel(uint32_t bindingID) const {
    return bindingID != 0 && std::any_of(channels.begin(), channels.end(), [&](const auto& channel) {
        return channel->MapBindingID == bindingID;
    });
}

void QLM_Material::CopyFrom(const QLM_Material& material) {
    if (&material == this) return;
    for (const QLM_SafePtr<QLM_MaterialChannel>& source : material.channels) {
        QLM_MaterialChannel* target = FindChannel(source->GetName());
        if (!target) target = AddChannel(source->GetName());
        target->Strength = source->Strength;
        target->Offset = source->Offset;
        std::copy_n(source->Color, 3, target->Color);
        target->MapBindingID = source->MapBindingID;
        target->mapFileName = source->mapFileName;
    }
}

bool QLM_Material::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool(ExcludeFromSaving)) return false;
    const TStartTextFileBlock block("material", GetName(), stream, writeBlock);
    if (!QLM_BaseClass::SaveToStream_Text(stream)) return false;
    for (const QLM_SafePtr<QLM_MaterialChannel>& channel : channels) channel->SaveToStream_Text(stream);
    return true;
}

bool QLM_Material::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("channel")) {
        const std::string name = CurrentChannelName(value);
        QLM_MaterialChannel* channel = FindChannel(name);
        if (!channel) channel = AddChannel(name);
        loadFailed = !channel->LoadFromStream_Text(stream, 0);
        RefreshChannelPointers(); // the record may have renamed it
    } else {
        command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    }
    return command.Handled();
}

QLM_MaterialMapSource* QLM_MaterialMapBinding::GetSource() const {
    return QLM_FindByID<QLM_MaterialMapSource>(SourceID);
}

bool QLM_MaterialMapBinding::SaveToStream_Text(FILE* stream, bool) {
    QLM_WriteInt(stream, "ID", GetID());
    return true;
}

bool QLM_MaterialMapBinding::LoadFromStream_Text_ConsiderCommand(FILE*, const std::string& key,
                                                                 const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("ID")) command.ReadUnsigned(recordID);
    else command.Is("dummy"); // written by older versions
    return command.Handled();
}

QLM_MaterialMapList::~QLM_MaterialMapList() {
    for (QLM_MaterialMapBinding* binding : *this) delete binding;
}

QLM_MaterialMapBinding* QLM_MaterialMapList::FindByID(uint32_t id) const {
    for (QLM_MaterialMapBinding* binding : *this)
        if (binding->GetID() == id) return binding;
    return nullptr;
}

QLM_MaterialMapBinding* QLM_MaterialMapList::FindBySource(uint32_t sourceID) const {
    for (QLM_MaterialMapBinding* binding : *this)
        if (binding->SourceID == sourceID) return binding;
    return nullptr;
}

void QLM_MaterialMapList::DeleteBindings(const std::set<uint32_t>& sourceIDs) {
    QLM_List<QLM_MaterialMapBinding*> doomed;
    for (QLM_MaterialMapBinding* binding : *this)
        if (sourceIDs.count(binding->SourceID)) doomed.Add(binding);
    for (QLM_MaterialMapBinding* binding : doomed) {
        Remove(binding);
        delete binding;
    }
}

QLM_MaterialMapBinding* QLM_MaterialMapList::FindByChannel(const QLM_Material& material,
                                                           const std::string& channel) const {
    const QLM_MaterialChannel* found = material.FindChannel(channel);
    return found ? FindByID(found->MapBindingID) : nullptr;
}

QLM_MaterialMapSource* QLM_GetChannelMap(const QLM_MaterialMapList& list, const QLM_MaterialChannel* channel) {
    const QLM_MaterialMapBinding* binding = channel ? list.FindByID(channel->MapBindingID) : nullptr;
    return binding ? binding->GetSource() : nullptr;
}
