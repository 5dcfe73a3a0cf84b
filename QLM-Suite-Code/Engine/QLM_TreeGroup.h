#pragma once
// Folders of items: the tree behind every user-visible list. Main thread.

#include "Core/Objects/QLM_BaseClass.h"

#include <functional>

/// Intrusive tree node; deletes its children.
class QLM_TreeNode {
  public:
    virtual ~QLM_TreeNode();
    virtual void ClearChildren();
    void DeleteChildren() { ClearChildren(); }

    void AddChild(QLM_TreeNode* node);
    void InsertAfter(QLM_TreeNode* node);
    void InsertBefore(QLM_TreeNode* node);
    void Unlink();
    QLM_TreeNode* GetParent() const { return parent; }
    QLM_TreeNode* GetFirstChild() const { return firstChild; }
    QLM_TreeNode* GetNext() const { return next; }
    bool IsAncestorOf(const QLM_TreeNode* node) const;

    QLM_TreeNode* next = nullptr;
    QLM_TreeNode* previous = nullptr;
    QLM_TreeNode* firstChild = nullptr;
    QLM_TreeNode* parent = nullptr;
};

/// A folder: items (owned) and child folders.
class QLM_TreeGroup : public QLM_TreeNode, public virtual QLM_BaseClass {
  public:
    using Callback = std::function<bool(QLM_TreeGroup&, int depth)>;

    QLM_TreeGroup();
    ~QLM_TreeGroup() override;

    void ClearChildren() override;
    /// Makes, names, appends and reads a child folder; false ends the load as failed.
    virtual bool CreateChildGroup(FILE* stream, const std::string& key, const std::string& value);

    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    void AddItem(QLM_BaseClass* item);
    void RemoveItem(QLM_BaseClass* item); ///< from this group and all below; deletes nothing
    void ClearItems();                    ///< empties all item lists below, deletes nothing
    void DeleteAllItems();                ///< deletes the items of this group and all below, keeps the groups
    void GetAllItems(QLM_List<QLM_BaseClass*>& list);
    /// Appends marked items; a marked folder is dissolved, its members going to the caller.
    void GetMarkedItems(QLM_List<QLM_BaseClass*>& list);
    QLM_BaseClass* FindByID(uint32_t id, bool matchGroups = true, bool matchItems = true);
    void Collect(QLM_List<QLM_BaseClass*>& list, bool wantGroups, bool wantItems, bool onlyMarked);
    int CountMarked(bool countItems, bool countGroups);
    bool HasItems();
    void ClearMarks();
    /// Row order: the group, its child groups, then its items; -1 when absent.
    int FindRowPosition(uint32_t id);
    void DeleteMarked();

    template <class Item> QLM_RootClassQueue<Item*> GetItemQueue() {
        QLM_List<QLM_BaseClass*> all;
        GetAllItems(all);
        QLM_RootClassQueue<Item*> queue;
        for (QLM_BaseClass* item : all)
            if (Item* typed = dynamic_cast<Item*>(item)) queue.Push(typed);
        return queue;
    }

    bool hidden = false;
    std::string topLabel = "Unlabeled_group";
    QLM_List<QLM_BaseClass*> items;
};

/// Walks the siblings from `first` with all below; a false answer ends the walk. True for null.
bool QLM_VisitGroups(QLM_TreeGroup* first, int depth, const QLM_TreeGroup::Callback& callback, bool postOrder);

/// The root of one kind of list, with the rules of a list control's clicks.
class QLM_TopTreeGroup : public QLM_TreeGroup {
  public:
    void SelectRow(uint32_t id, bool shiftDown, bool controlDown);
    uint32_t GetAnchor();
    uint32_t anchorID = 0;
};
