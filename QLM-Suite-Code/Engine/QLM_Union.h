#pragma once
// Items of the same name on several objects that the user handles as one.

#include "Core/Objects/QLM_BaseClass.h"
#include "Engine/QLM_TreeGroup.h"

#include <algorithm>

/// Members by ID, one an object; those that are gone drop out. Owns none of them. Main thread.
template <class Item> class QLM_Union : public virtual QLM_BaseClass {
  public:
    void SetReadOnly(bool on) override {
        QLM_BaseClass::SetReadOnly(on);
        for (Item* member : GetMembers()) member->SetReadOnly(on);
    }
    /// The members keep the union's name, by which a load ties them together again.
    void SetNameText(const std::string& text) override {
        QLM_BaseClass::SetNameText(text);
        for (Item* member : GetMembers()) member->SetNameText(text);
    }
    void AddMember(Item* member) {
        if (std::find(memberIDs.begin(), memberIDs.end(), member->GetID()) == memberIDs.end())
            memberIDs.push_back(member->GetID());
    }
    void RemoveMember(uint32_t id) { std::erase(memberIDs, id); }
    std::vector<Item*> GetMembers() {
        std::vector<Item*> members;
        std::erase_if(memberIDs, [&](uint32_t id) {
            Item* member = QLM_FindByID<Item>(id);
            if (member) members.push_back(member);
            return !member;
        });
        return members;
    }

  private:
    std::vector<uint32_t> memberIDs;
};

/// The tree of one kind of union, with the current one. Main thread.
template <class Item> class QLM_UnionGroup : public QLM_TopTreeGroup {
  public:
    /// The current item; null, and forgotten, when it is gone.
    Item* GetCurrentItem() {
        Item* item = currentID ? QLM_FindByID<Item>(currentID) : nullptr;
        if (!item) currentID = 0;
        return item;
    }
    void SetCurrentItem(Item* item) {
        if (Item* former = GetCurrentItem()) former->SetCurrentFlag(false);
        currentID = item ? item->GetID() : 0;
        if (item) item->SetCurrentFlag(true);
    }
    Item* FindItemByName(const std::string& name) {
        for (auto items = this->template GetItemQueue<Item>(); !items.IsEmpty(); items.Pop())
            if (static_cast<Item*>(items)->GetName() == name) return items;
        return nullptr;
    }

  private:
    uint32_t currentID = 0;
};
