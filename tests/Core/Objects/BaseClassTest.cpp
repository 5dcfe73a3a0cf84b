// IDs, names and weak sets.

#include "Core/Objects/QLM_BaseClass.h"

#include <gtest/gtest.h>

namespace {

class Item : public virtual QLM_BaseClass {
  public:
    explicit Item(bool* foundIn = nullptr) : found(foundIn) {}
    ~Item() override {
        if (found) *found = QLM_FindBaseClassByID(GetID()) != nullptr;
    }

  private:
    bool* found;
};

class Asset : public virtual QLM_UserAsset {};

TEST(BaseClass, IDsResolveWhileTheItemLives) {
    bool foundInDestructor = false;
    auto* item = new Item(&foundInDestructor);
    const uint32_t id = item->GetID();
    EXPECT_GE(id, 70000u);
    EXPECT_EQ(QLM_FindBaseClassByID(id), item);
    EXPECT_EQ(QLM_FindByID<Item>(id), item);
    EXPECT_EQ(QLM_FindByID<QLM_UserAsset>(id), nullptr);
    EXPECT_EQ(QLM_FindBaseClassByID(0), nullptr);
    const QLM_BaseClassA plain;
    EXPECT_GT(plain.GetID(), id);
    EXPECT_EQ(QLM_FindBaseClassByID(plain.GetID()), nullptr) << "no QLM_BaseClass";

    QLM_BaseClassByIDMap set;
    set.AddMember(id);
    delete item;
    EXPECT_TRUE(foundInDestructor);
    EXPECT_EQ(set.GetMembers(), std::vector<uint32_t>{id});
    EXPECT_EQ(QLM_FindBaseClassByID(id), nullptr);
    EXPECT_GT(Item().GetID(), id) << "never reused";
}

TEST(BaseClass, NamesHoldNoSeparatorAndNoDirective) {
    Item item;
    item.SetName("%s/%d:\\", "a%b", 4);
    EXPECT_STREQ(item.GetName(), "a_b_4__");
    item.SetName(nullptr);
    EXPECT_STREQ(item.GetName(), "a_b_4__");
    item.SetHint("50%% of %s", "C:/x");
    EXPECT_STREQ(item.GetHint(), "50% of C:/x");
    item.SetTreePath("Group/Child");
    item.SetTreePath(item.GetTreePath());
    EXPECT_STREQ(item.GetTreePath(), "Group/Child");
    EXPECT_EQ(static_cast<QLM_BaseClass*>(item.GetChild(0)), nullptr);
}

TEST(BaseClass, UserAssetsAreListedInIDOrderAndTaggedForExport) {
    QLM_List<QLM_BaseClass*> before, list;
    QLM_FindUserAssets(before);
    Asset first;
    auto* second = new Asset;
    Asset third;
    delete second;
    QLM_FindUserAssets(list);
    ASSERT_EQ(list.Count(), before.Count() + 2);
    EXPECT_EQ(list[list.size() - 2], &first);
    EXPECT_EQ(list.back(), &third);
    EXPECT_TRUE(first.GetBool("export/Template/doExport"));
}

TEST(BaseClass, ItemsComeAndGoOnManyThreads) {
    std::atomic<uint32_t> lastID{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                Item item;
                lastID = item.GetID();
            }
        });
    uint32_t resolved = 0;
    for (int i = 0; i < 500; ++i) resolved += QLM_FindBaseClassByID(1) != nullptr;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(resolved, 0u);
    EXPECT_EQ(QLM_FindBaseClassByID(lastID), nullptr);
}

} // namespace
