#include "Engine/QLM_TreeGroup.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

int deaths = 0;

class Item : public virtual QLM_BaseClass {
  public:
    explicit Item(const char* text) { SetNameText(text); }
    ~Item() override { ++deaths; }
    bool SaveToStream_Text(FILE* stream, bool) override {
        std::fprintf(stream, "item\t%s\n", GetName());
        return true;
    }
};

/// A tree that reads its items back.
class ItemTree : public QLM_TopTreeGroup {
  public:
    bool CreateChildGroup(FILE* stream, const std::string&, const std::string& value) override {
        auto* group = new ItemTree;
        group->SetNameText(value);
        AddChild(group);
        return group->LoadFromStream_Text(stream, 0);
    }
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override {
        if (key == "item") {
            AddItem(new Item(value.c_str()));
            return true;
        }
        return QLM_TopTreeGroup::LoadFromStream_Text_ConsiderCommand(stream, key, value);
    }
};

/// root { A { A1 { p } q }  B { r }  s t }: rows root A A1 p q B r s t.
class TreeGroupTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root = new ItemTree;
        root->topLabel = "items";
        a = Group(root, "A");
        a1 = Group(a, "A1");
        b = Group(root, "B");
        p = Put(a1, "p");
        q = Put(a, "q");
        r = Put(b, "r");
        s = Put(root, "s");
        t = Put(root, "t");
        deaths = 0;
    }
    void TearDown() override { delete root; }

    static ItemTree* Group(QLM_TreeGroup* parent, const char* name) {
        auto* group = new ItemTree;
        group->SetNameText(name);
        parent->AddChild(group);
        return group;
    }
    static Item* Put(QLM_TreeGroup* group, const char* name) {
        auto* item = new Item(name);
        group->AddItem(item);
        return item;
    }
    std::string Names(bool groups, bool items, bool onlyMarked) {
        QLM_List<QLM_BaseClass*> list;
        root->Collect(list, groups, items, onlyMarked);
        std::string text;
        for (QLM_BaseClass* each : list) text += std::string(text.empty() ? "" : " ") + each->GetName();
        return text;
    }
    std::string Marked() { return Names(true, true, true); }

    ItemTree *root, *a, *a1, *b;
    Item *p, *q, *r, *s, *t;
};

} // namespace

TEST_F(TreeGroupTest, LinksStayWhole) {
    QLM_TreeNode parent;
    auto *one = new QLM_TreeNode, *two = new QLM_TreeNode, *three = new QLM_TreeNode;
    parent.AddChild(two);
    two->InsertBefore(one);
    two->InsertAfter(three);
    EXPECT_EQ(parent.GetFirstChild(), one);
    EXPECT_EQ(one->GetNext(), two);
    EXPECT_EQ(two->GetNext(), three);
    EXPECT_EQ(three->previous, two);
    two->Unlink();
    EXPECT_EQ(one->GetNext(), three);
    EXPECT_EQ(three->previous, one);
    EXPECT_EQ(two->GetParent(), nullptr);
    one->AddChild(two);
    EXPECT_TRUE(parent.IsAncestorOf(two));
    EXPECT_FALSE(two->IsAncestorOf(&parent));
    parent.AddChild(one); // moves to the end, with what hangs on it
    EXPECT_EQ(parent.GetFirstChild(), three);
    EXPECT_EQ(three->GetNext(), one);
    EXPECT_EQ(one->GetFirstChild(), two);
    delete three; // a node leaves its parent when it is deleted
    EXPECT_EQ(parent.GetFirstChild(), one);
}

TEST_F(TreeGroupTest, WalksInRowOrder) {
    EXPECT_EQ(Names(true, true, false), "New Folder A A1 p q B r s t");
    EXPECT_EQ(Names(false, true, false), "p q r s t");
    EXPECT_EQ(root->FindRowPosition(root->GetID()), 0);
    EXPECT_EQ(root->FindRowPosition(p->GetID()), 3);
    EXPECT_EQ(root->FindRowPosition(t->GetID()), 8);
    EXPECT_EQ(b->FindRowPosition(t->GetID()), -1);
    EXPECT_EQ(a->FindByID(b->GetID()), nullptr); // siblings are not below
    EXPECT_EQ(root->FindByID(p->GetID()), p);
    EXPECT_EQ(root->FindByID(p->GetID(), true, false), nullptr);
    EXPECT_EQ(root->FindByID(a1->GetID(), false, true), nullptr);
    EXPECT_EQ(root->GetItemQueue<Item>().size(), 5u);

    std::string order;
    const auto note = [&](QLM_TreeGroup& group, int depth) {
        order += group.GetName() + std::to_string(depth) + " ";
        return true;
    };
    EXPECT_TRUE(QLM_VisitGroups(root, 0, note, false));
    EXPECT_EQ(order, "New Folder0 A1 A12 B1 ");
    order.clear();
    EXPECT_TRUE(QLM_VisitGroups(root, 0, note, true));
    EXPECT_EQ(order, "A12 A1 B1 New Folder0 ");
    int calls = 0;
    EXPECT_FALSE(QLM_VisitGroups(root, 0, [&](QLM_TreeGroup&, int) { return ++calls < 2; }, true));
    EXPECT_EQ(calls, 2);
    EXPECT_TRUE(QLM_VisitGroups(nullptr, 0, note, true));
}

TEST_F(TreeGroupTest, ClicksMarkRowsAsAListControlDoes) {
    root->SelectRow(q->GetID(), true, false); // shift without an anchor is a plain click
    EXPECT_EQ(Marked(), "q");
    EXPECT_EQ(root->GetAnchor(), q->GetID());
    root->SelectRow(s->GetID(), true, false); // across folders
    EXPECT_EQ(Marked(), "q B r s");
    root->SelectRow(a1->GetID(), true, false); // the other way, from the same anchor
    EXPECT_EQ(Marked(), "A1 p q");
    EXPECT_EQ(root->CountMarked(true, true), 3);
    EXPECT_EQ(root->CountMarked(true, false), 2);
    EXPECT_EQ(root->CountMarked(false, true), 1);

    root->SelectRow(t->GetID(), false, true);
    EXPECT_EQ(Marked(), "A1 p q t");
    root->SelectRow(q->GetID(), false, true); // unmarks the anchor, which stays until it is asked for
    EXPECT_EQ(root->anchorID, q->GetID());
    EXPECT_EQ(root->GetAnchor(), 0u);
    EXPECT_EQ(root->anchorID, 0u);
    root->SelectRow(r->GetID(), false, true); // without an anchor control marks and sets it
    EXPECT_EQ(Marked(), "A1 p r t");
    EXPECT_EQ(root->GetAnchor(), r->GetID());

    root->SelectRow(12, false, false); // unknown: the marks are gone, nothing else happens
    EXPECT_EQ(Marked(), "");
    EXPECT_EQ(root->GetAnchor(), 0u);
    root->SelectRow(p->GetID(), false, false);
    root->RemoveItem(p);
    root->SelectRow(t->GetID(), true, false); // the anchor's row is gone
    EXPECT_EQ(root->FindRowPosition(t->GetID()), 7);
    EXPECT_FALSE(t->IsMarked());
    delete p;
    EXPECT_EQ(root->GetAnchor(), 0u);
}

TEST_F(TreeGroupTest, DeletesMarkedRowsButNotTheRoot) {
    root->SetMarked(true);
    a->SetMarked(true);
    t->SetMarked(true);
    root->DeleteMarked();
    EXPECT_EQ(deaths, 3); // p and q with their folders, and t
    EXPECT_EQ(Names(true, true, false), "New Folder B r s");
    root->DeleteAllItems();
    EXPECT_EQ(deaths, 5);
    EXPECT_EQ(Names(true, true, false), "New Folder B");
    EXPECT_FALSE(root->HasItems());
}

TEST_F(TreeGroupTest, HandsOutMarkedItemsAndDissolvesMarkedFolders) {
    a->SetMarked(true);
    r->SetMarked(true);
    QLM_List<QLM_BaseClass*> taken;
    root->GetMarkedItems(taken);
    EXPECT_EQ(taken, (QLM_List<QLM_BaseClass*>{p, q, r}));
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(Names(true, true, false), "New Folder B r s t");
    delete p;
    delete q;
    // A tree that only refers to its items lets go of them.
    root->ClearItems();
    EXPECT_FALSE(root->HasItems());
    EXPECT_EQ(deaths, 2);
    delete r;
    delete s;
    delete t;
}

TEST_F(TreeGroupTest, SavesAndReadsItself) {
    b->hidden = true;
    ItemTree* const c = Group(root, "C");
    ItemTree* const d = Group(root, "D");
    Put(c, "u");
    d->SetBool("excludeFromSaving", true);
    Put(Group(root, "E"), "v"); // behind an excluded sibling
    a->SetReadOnly(true);

    FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(root->SaveToStream_Text(file));
    std::rewind(file);
    char line[64] = {};
    ASSERT_NE(std::fgets(line, sizeof line, file), nullptr);
    EXPECT_STREQ(line, "items\t\n");

    ItemTree loaded;
    EXPECT_TRUE(loaded.LoadFromStream_Text(file, 0));
    std::fclose(file);
    std::string rows;
    QLM_List<QLM_BaseClass*> list;
    loaded.Collect(list, true, true, false);
    for (QLM_BaseClass* each : list) rows += std::string(each->GetName()) + " ";
    EXPECT_EQ(rows, "New Folder A A1 p q C u s t ");
    EXPECT_TRUE(list[1]->IsReadOnly());
}

TEST_F(TreeGroupTest, RefusesEndlessNesting) {
    FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    std::fputs("{\n", file);
    for (int i = 0; i < 100000; ++i) std::fputs("group\tdeep\n{\n", file);
    std::rewind(file);
    ItemTree loaded;
    EXPECT_FALSE(loaded.LoadFromStream_Text(file, 0));
    std::fclose(file);
}
