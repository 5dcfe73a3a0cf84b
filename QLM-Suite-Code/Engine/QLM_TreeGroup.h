#pragma once
// Folders of items: the tree behind every user-visible list. Main thread.

#include "Core/Objects/QLM_BaseClass.h"

#include <functional>

/// Intrusive tree node; deletes its children, and leaves its parent when it is deleted itself.
class QLM_TreeNode {
  public:
    QLM_TreeNode() = default;
    QLM_TreeNode(const QLM_TreeNode&) = delete;
    QLM_TreeNode& operator=(const QLM_TreeNode&) = delete;
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

/// A folder: items (owned) and child folders. Only groups may be linked into a tree of groups.
/// "This group and all below" never means the group's siblings. Walks go in row order: the group, its child groups,
/// then its items.
class QLM_TreeGroup : public QLM_TreeNode, public virtual QLM_BaseClass {
  public:
    using Callback = std::function<bool(QLM_TreeGroup&, int depth)>;

    QLM_TreeGroup();
    ~QLM_TreeGroup() override;

    /// Makes, names, appends and reads a child folder; false ends the load as failed.
    virtual bool CreateChildGroup(FILE* stream, const std::string& key, const std::string& value);

    /// Writes this group's block and those of the siblings behind it, up to one with "excludeFromSaving".
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    void AddItem(QLM_BaseClass* item);
    void RemoveItem(QLM_BaseClass* item); ///< from this group and all below; deletes nothing
    void ClearItems();                    ///< empties all item lists below, deletes nothing
    void DeleteAllItems();                ///< deletes the items of this group and all below, keeps the groups
    void GetAllItems(QLM_List<QLM_BaseClass*>& list);
    /// Appends marked items and takes marked folders apart: all items of such a folder go to the caller, who owns
    /// them now, and the folder is deleted (a root never is). For reading use Collect.
    void GetMarkedItems(QLM_List<QLM_BaseClass*>& list);
    QLM_BaseClass* FindByID(uint32_t id, bool matchGroups = true, bool matchItems = true);
    void Collect(QLM_List<QLM_BaseClass*>& list, bool wantGroups, bool wantItems, bool onlyMarked);
    int CountMarked(bool countItems, bool countGroups);
    bool HasItems();
    void ClearMarks();
    /// Rows are counted from 0, this group; -1 when absent.
    int FindRowPosition(uint32_t id);
    /// Deletes marked items, and marked groups with all they hold; a root stays.
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

  protected:
    /// Calls `row(QLM_BaseClass&, bool isGroup)` for each row of this group and all below; false ends the walk.
    bool WalkRows(const std::function<bool(QLM_BaseClass&, bool)>& row);

  private:
    void WriteBlock(FILE* stream);
    void DeleteItems();
};

/// Walks the siblings from `first` with all below; a false answer ends the walk. True for null.
bool QLM_VisitGroups(QLM_TreeGroup* first, int depth, const QLM_TreeGroup::Callback& callback, bool postOrder);

/// The root of one kind of list, with the rules of a list control's clicks.
class QLM_TopTreeGroup : public QLM_TreeGroup {
  public:
    /// A click on the row of `id`; does nothing for an ID that isn't in the tree.
    void SelectRow(uint32_t id, bool shiftDown, bool controlDown);
    /// The anchor's ID; 0, and forgotten, when it is gone or no longer marked.
    uint32_t GetAnchor();
    uint32_t anchorID = 0;
};
