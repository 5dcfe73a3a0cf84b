#include "Engine/QLM_TreeGroup.h"

#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Messages.h"

#include <algorithm>
#include <utility>

namespace {

// Deeper files are damaged or hostile; the walks recurse once a level.
constexpr int MaximumDepth = 256;

// Siblings of a group are groups by contract; a dynamic_cast a step would cost more than the walk.
QLM_TreeGroup* AsGroup(QLM_TreeNode* node) { return static_cast<QLM_TreeGroup*>(node); }

int DepthOf(const QLM_TreeNode* node) {
    int depth = 0;
    while ((node = node->GetParent())) ++depth;
    return depth;
}

} // namespace

// --- QLM_TreeNode ---------------------------------------------------------------------------------------------------

QLM_TreeNode::~QLM_TreeNode() {
    QLM_TreeNode::ClearChildren();
    Unlink();
}

void QLM_TreeNode::ClearChildren() {
    while (QLM_TreeNode* child = firstChild) {
        child->Unlink();
        delete child;
    }
}

void QLM_TreeNode::AddChild(QLM_TreeNode* node) {
    node->Unlink();
    node->parent = this;
    if (!firstChild) {
        firstChild = node;
        return;
    }
    QLM_TreeNode* last = firstChild;
    while (last->next) last = last->next;
    last->next = node;
    node->previous = last;
}

void QLM_TreeNode::InsertAfter(QLM_TreeNode* node) {
    node->Unlink();
    node->parent = parent;
    node->previous = this;
    node->next = next;
    if (next) next->previous = node;
    next = node;
}

void QLM_TreeNode::InsertBefore(QLM_TreeNode* node) {
    node->Unlink();
    node->parent = parent;
    node->next = this;
    node->previous = previous;
    if (previous) previous->next = node;
    else if (parent) parent->firstChild = node;
    previous = node;
}

void QLM_TreeNode::Unlink() {
    if (previous) previous->next = next;
    else if (parent) parent->firstChild = next;
    if (next) next->previous = previous;
    next = previous = parent = nullptr;
}

bool QLM_TreeNode::IsAncestorOf(const QLM_TreeNode* node) const {
    for (const QLM_TreeNode* child = firstChild; child; child = child->next)
        if (child == node || child->IsAncestorOf(node)) return true;
    return false;
}

// --- QLM_TreeGroup --------------------------------------------------------------------------------------------------

QLM_TreeGroup::QLM_TreeGroup() { SetNameText(QLM_GetString(1325)); }

QLM_TreeGroup::~QLM_TreeGroup() { DeleteItems(); }

bool QLM_TreeGroup::CreateChildGroup(FILE* stream, const std::string&, const std::string& value) {
    auto* group = new QLM_TreeGroup;
    group->SetNameText(value);
    AddChild(group);
    return group->LoadFromStream_Text(stream, 0);
}

void QLM_TreeGroup::WriteBlock(FILE* stream) {
    TStartTextFileBlock block(parent ? "group" : topLabel.c_str(), parent ? GetName() : "", stream);
    if (parent) QLM_BaseClass::SaveToStream_Text(stream, true);
    QLM_WriteInt(stream, "Hidden", hidden);
    std::fputc('\n', stream);
    for (QLM_BaseClass* item : items) item->SaveToStream_Text(stream, true);
    if (firstChild) AsGroup(firstChild)->SaveToStream_Text(stream, true);
}

bool QLM_TreeGroup::SaveToStream_Text(FILE* stream, bool) {
    for (QLM_TreeGroup* group = this; group; group = AsGroup(group->next)) {
        if (group->GetBool("excludeFromSaving")) return group != this;
        if (!group->hidden) group->WriteBlock(stream);
    }
    return true;
}

bool QLM_TreeGroup::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                        const std::string& value) {
    if (QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value)) return true;
    TextCommand command(key, value);
    if (command.Is("Hidden")) command.ReadBool(hidden);
    else if (command.Is("group"))
        loadFailed = DepthOf(this) >= MaximumDepth || !CreateChildGroup(stream, key, value) || loadFailed;
    return command.Handled();
}

bool QLM_TreeGroup::WalkRows(const std::function<bool(QLM_BaseClass&, bool)>& row) {
    if (!row(*this, true)) return false;
    for (QLM_TreeNode* child = firstChild; child; child = child->next)
        if (!AsGroup(child)->WalkRows(row)) return false;
    for (QLM_BaseClass* item : items)
        if (!row(*item, false)) return false;
    return true;
}

void QLM_TreeGroup::AddItem(QLM_BaseClass* item) { items.Add(item); }

void QLM_TreeGroup::RemoveItem(QLM_BaseClass* item) {
    while (items.Remove(item)) {}
    for (QLM_TreeNode* child = firstChild; child; child = child->next) AsGroup(child)->RemoveItem(item);
}

void QLM_TreeGroup::ClearItems() {
    items.clear();
    items.cachedIndex = -1;
    for (QLM_TreeNode* child = firstChild; child; child = child->next) AsGroup(child)->ClearItems();
}

void QLM_TreeGroup::DeleteItems() {
    // Each item leaves the list before it dies: its destructor may look into the tree or take others along.
    while (!items.empty()) {
        QLM_BaseClass* const item = items.front();
        items.Remove(item);
        delete item;
    }
}

void QLM_TreeGroup::DeleteAllItems() {
    for (QLM_TreeNode* child = firstChild; child; child = child->next) AsGroup(child)->DeleteAllItems();
    DeleteItems();
}

void QLM_TreeGroup::GetAllItems(QLM_List<QLM_BaseClass*>& list) { Collect(list, false, true, false); }

void QLM_TreeGroup::GetMarkedItems(QLM_List<QLM_BaseClass*>& list) {
    if (parent && IsMarked()) {
        GetAllItems(list);
        Unlink();
        ClearItems();
        delete this;
        return;
    }
    for (QLM_BaseClass* item : items)
        if (item->IsMarked()) list.Add(item);
    for (QLM_TreeNode *child = firstChild, *following; child; child = following) {
        following = child->next;
        AsGroup(child)->GetMarkedItems(list);
    }
}

QLM_BaseClass* QLM_TreeGroup::FindByID(uint32_t id, bool matchGroups, bool matchItems) {
    QLM_BaseClass* found = nullptr;
    WalkRows([&](QLM_BaseClass& row, bool isGroup) {
        if ((isGroup ? matchGroups : matchItems) && row.GetID() == id) found = &row;
        return found == nullptr;
    });
    return found;
}

void QLM_TreeGroup::Collect(QLM_List<QLM_BaseClass*>& list, bool wantGroups, bool wantItems, bool onlyMarked) {
    WalkRows([&](QLM_BaseClass& row, bool isGroup) {
        if ((isGroup ? wantGroups : wantItems) && (!onlyMarked || row.IsMarked())) list.Add(&row);
        return true;
    });
}

int QLM_TreeGroup::CountMarked(bool countItems, bool countGroups) {
    QLM_List<QLM_BaseClass*> marked;
    Collect(marked, countGroups, countItems, true);
    return marked.Count();
}

bool QLM_TreeGroup::HasItems() {
    return !WalkRows([](QLM_BaseClass&, bool isGroup) { return isGroup; });
}

void QLM_TreeGroup::ClearMarks() {
    WalkRows([](QLM_BaseClass& row, bool) {
        row.SetMarked(false);
        return true;
    });
}

int QLM_TreeGroup::FindRowPosition(uint32_t id) {
    int position = 0;
    const bool missed = WalkRows([&](QLM_BaseClass& row, bool) {
        if (row.GetID() == id) return false;
        ++position;
        return true;
    });
    return missed ? -1 : position;
}

void QLM_TreeGroup::DeleteMarked() {
    QLM_List<QLM_BaseClass*> kept, doomed;
    for (QLM_BaseClass* item : items) (item->IsMarked() ? doomed : kept).Add(item);
    items.swap(kept);
    items.cachedIndex = -1;
    for (QLM_BaseClass* item : doomed) delete item;

    for (QLM_TreeNode *child = firstChild, *following; child; child = following) {
        following = child->next;
        if (!AsGroup(child)->IsMarked()) {
            AsGroup(child)->DeleteMarked();
            continue;
        }
        child->Unlink();
        child->ClearChildren();
        delete child;
    }
}

bool QLM_VisitGroups(QLM_TreeGroup* first, int depth, const QLM_TreeGroup::Callback& callback, bool postOrder) {
    for (QLM_TreeGroup* group = first; group; group = AsGroup(group->next)) {
        if (!postOrder && !callback(*group, depth)) return false;
        if (!QLM_VisitGroups(AsGroup(group->firstChild), depth + 1, callback, postOrder)) return false;
        if (postOrder && !callback(*group, depth)) return false;
    }
    return true;
}

// --- QLM_TopTreeGroup -----------------------------------------------------------------------------------------------

void QLM_TopTreeGroup::SelectRow(uint32_t id, bool shiftDown, bool controlDown) {
    const bool modified = shiftDown || controlDown;
    if (!modified) {
        anchorID = 0;
        ClearMarks();
    }
    QLM_BaseClass* const row = FindByID(id);
    if (!row) return;
    if (!modified || anchorID == 0) {
        anchorID = id;
        row->SetMarked(true);
        return;
    }
    if (!shiftDown) {
        row->SetMarked(!row->IsMarked());
        return;
    }
    const int anchor = FindRowPosition(anchorID), clicked = FindRowPosition(id);
    if (anchor < 0 || clicked < 0) return;
    const auto [low, high] = std::minmax(anchor, clicked);
    int position = 0;
    WalkRows([&, low = low, high = high](QLM_BaseClass& each, bool) {
        each.SetMarked(position >= low && position <= high);
        ++position;
        return true;
    });
}

uint32_t QLM_TopTreeGroup::GetAnchor() {
    const QLM_BaseClass* const row = QLM_FindBaseClassByID(anchorID);
    if (!row || !row->IsMarked()) anchorID = 0;
    return anchorID;
}
