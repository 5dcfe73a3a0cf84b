#include "Core/Objects/QLM_BaseClass.h"

#include "Core/OS/QLM_Memory.h"
#include "Core/OS/String_Functions.h"
#include "Core/TextStream/QLM_TextStream.h"

#include <cstring>

namespace {

constexpr uint32_t FirstID = 70000; // smaller numbers are fixed commands

/// What the ID lock guards. Never destroyed: destructors of other statics still come here.
struct Registry {
    ThreadLocker lock;
    uint32_t nextID = FirstID;
    std::map<uint32_t, QLM_BaseClassA*> items;
    std::map<uint32_t, QLM_BaseClass*> userAssets;
};

Registry& GetRegistry() {
    static Registry& registry = *new Registry;
    return registry;
}

/// The keys of every item; they are matched first, whatever the class.
void ConsiderCommonKey(QLM_BaseClassA& item, TextCommand& command, bool& readOnly, bool& collapsed, bool& current) {
    if (command.Is("name")) item.SetNameText(command.value);
    else if (command.Is("ReadOnly")) command.ReadBool(readOnly);
    else if (command.Is("Collapsed")) command.ReadBool(collapsed);
    else if (command.Is("Current")) command.ReadBool(current);
}

} // namespace

QLM_BaseClassA::QLM_BaseClassA() {
    Registry& registry = GetRegistry();
    {
        ThreadLockerScope scope(&registry.lock);
        id = registry.nextID++;
    }
    ReAddToIDMap();
}

QLM_BaseClassA::~QLM_BaseClassA() {
    Registry& registry = GetRegistry();
    ThreadLockerScope scope(&registry.lock);
    QLM_Free(treePath);
    treePath = nullptr;
    if (registeredInIDMap) registry.items.erase(id);
}

void QLM_BaseClassA::ReAddToIDMap() {
    Registry& registry = GetRegistry();
    ThreadLockerScope scope(&registry.lock);
    if (registeredInIDMap) return;
    registry.items.emplace(id, this);
    registeredInIDMap = true;
}

QLM_SafePtr<QLM_BaseClass> QLM_BaseClassA::GetChild(int) const { return nullptr; }

// A name never holds a path separator or a format directive.
std::string QLM_CleanName(std::string text, const char* unfit) {
    for (char& c : text)
        if (std::strchr(unfit, c) && c) c = '_';
    return text;
}

void QLM_BaseClassA::SetNameText(const std::string& text) { name = QLM_CleanName(text); }

void QLM_BaseClassA::SetTreePath(const char* path) {
    char* copy = nullptr;
    if (path) {
        const size_t size = std::strlen(path) + 1;
        copy = static_cast<char*>(QLM_Malloc(size, false));
        std::memcpy(copy, path, size);
    }
    QLM_Free(treePath);
    treePath = copy;
}

bool QLM_BaseClassA::SaveToStream_Text(FILE* stream, bool) {
    QLM_WriteText(stream, "Name", name);
    QLM_WriteInt(stream, "ReadOnly", readOnly);
    QLM_WriteInt(stream, "Collapsed", collapsed);
    if (id) QLM_WriteInt(stream, "ID", id);
    if (current) QLM_WriteInt(stream, "Current", 1);
    return true;
}

bool QLM_BaseClassA::LoadFromStream_Text_ConsiderCommand(FILE*, const std::string&, const std::string&) {
    return false;
}

bool QLM_BaseClassA::LoadFromStream_Text(FILE* stream, uint32_t flags) {
    const QLM_RestoreStreamPosition restore(stream, (flags & 1) != 0);
    loadFailed = false;
    std::string line;

    // Find the block's opening brace; everything before it is ignored.
    do {
        if (!QLM_ReadLine(line, QLM_TextStreamLineLimit, stream)) return true;
        line = QLM_Trim(line);
    } while (line != "{");

    // Offer each line to the item; whoever wants a nested block reads it inside the handler.
    while (QLM_ReadLine(line, QLM_TextStreamLineLimit, stream)) {
        line = QLM_Trim(line);
        if (line == "{") {
            if (!QLM_SkipTextBlock(stream)) break;
            continue;
        }
        if (line == "}") break;
        std::string key, value;
        QLM_SplitKeyValue(line, key, value);
        TextCommand command(key, value);
        ConsiderCommonKey(*this, command, readOnly, collapsed, current);
        LoadFromStream_Text_ConsiderCommand(stream, key, value);
        if (loadFailed) {
            // Leave the stream behind the block, so that the reader around it stays in step.
            QLM_SkipTextBlock(stream);
            return false;
        }
    }
    return true;
}

QLM_UserAsset::QLM_UserAsset() {
    Registry& registry = GetRegistry();
    {
        ThreadLockerScope scope(&registry.lock);
        registry.userAssets[GetID()] = this;
    }
    SetBool("export/Template/doExport", true, Saved);
}

QLM_UserAsset::~QLM_UserAsset() {
    Registry& registry = GetRegistry();
    ThreadLockerScope scope(&registry.lock);
    registry.userAssets.erase(GetID());
}

QLM_BaseClass* QLM_FindBaseClassByID(uint32_t id) {
    if (id == 0) return nullptr;
    Registry& registry = GetRegistry();
    // The cast stays under the lock: the item's destructor waits for it before the memory of its class goes.
    ThreadLockerScope scope(&registry.lock);
    const auto found = registry.items.find(id);
    return found == registry.items.end() ? nullptr : dynamic_cast<QLM_BaseClass*>(found->second);
}

void QLM_FindUserAssets(QLM_List<QLM_BaseClass*>& list) {
    Registry& registry = GetRegistry();
    ThreadLockerScope scope(&registry.lock);
    list.clear();
    for (const auto& [id, asset] : registry.userAssets) list.Add(asset);
}

void QLM_BaseClassByIDMap::AddMember(uint32_t memberID) {
    ThreadLockerScope scope(this);
    insert_or_assign(memberID, memberID);
}

void QLM_BaseClassByIDMap::RemoveMember(uint32_t memberID) {
    ThreadLockerScope scope(this);
    erase(memberID);
}

std::vector<uint32_t> QLM_BaseClassByIDMap::GetMembers() {
    ThreadLockerScope scope(this);
    std::vector<uint32_t> members;
    members.reserve(size());
    for (const auto& [id, same] : *this) members.push_back(id);
    return members;
}
