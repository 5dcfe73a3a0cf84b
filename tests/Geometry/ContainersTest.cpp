// The arrays and containers that a mesh is made of.

#include "MeshTestSupport.h"

#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Math/QLM_Matrix.h"

namespace {
class Recorder : public QLM_MeshContainerMesh {
  public:
    Recorder(std::string nameIn, std::vector<std::string>& logIn) : name(std::move(nameIn)), log(logIn) {}
    void OnAfterRawBuild() override { log.push_back(name + " built"); }
    void OnAfterSetSizes() override { log.push_back(name + " sized"); }
    void OnSetVertexCount(int a, int b) override { Add("v", a, b); }
    void OnSetTextureVertexCount(int a, int b) override { Add("vt", a, b); }
    void OnSetPolygonCount(int a, int b) override { Add("p", a, b); }

  private:
    void Add(const char* kind, int a, int b) { log.push_back(name + " " + kind + QLM_FormatText(" %d %d", a, b)); }
    std::string name;
    std::vector<std::string>& log;
};
} // namespace

TEST(Containers, NotificationsGoInOrderOfRegistration) {
    std::vector<std::string> log;
    Recorder first("first", log), second("second", log);
    MeshOwner mesh(new QLM_Mesh(nullptr));
    mesh->Register(&first, mesh.Get());
    mesh->Register(&second, mesh.Get());
    mesh->SetSizes(4, 2, 1);
    mesh->SetVCount(3);
    mesh->AfterRawBuild();
    EXPECT_EQ(log, (std::vector<std::string>{"first v 0 4", "second v 0 4", "first p 0 1", "second p 0 1",
                                             "first vt 0 2", "second vt 0 2", "first sized", "second sized",
                                             "first v 4 3", "second v 4 3", "first built", "second built"}));
}

TEST(Containers, CountsKeepEveryArrayInStep) {
    MeshOwner mesh = MakeCube();
    mesh->SetVertexFlag(7, eVFlag_Locked);
    mesh->VertexVisibility[7] = 1;
    mesh->BigFlagArray::SetSizes(3, 6);
    mesh->SetFlag(5, 2, true);
    mesh->VertexWeights.Resize(8, false, true);
    *mesh->VertexWeights[7] = 0.5f;
    mesh->SetVCount(10);
    mesh->SetPCount(8);
    EXPECT_EQ(mesh->GetVertexFlags(7) & eVFlag_Locked, eVFlag_Locked);
    EXPECT_EQ(mesh->GetVertexFlags(9), 0u);
    EXPECT_EQ(mesh->VertexVisibility[7], 1);
    EXPECT_EQ(mesh->VertexVisibility[9], -1);
    EXPECT_EQ(mesh->GetVertexWeight(7), 0.5f);
    EXPECT_EQ(mesh->GetVertexWeight(9), 0.0f);
    EXPECT_TRUE(mesh->GetFlag(5, 2));
    EXPECT_FALSE(mesh->GetFlag(7, 2));
    EXPECT_EQ(mesh->GetPolygonMaterial(7), 65535);
    EXPECT_EQ(mesh->GetPolygonVertexCount(7), 0);
    EXPECT_EQ(mesh->Vertices[9][0], 0.0f);
    EXPECT_EQ(mesh->SavedVertexNormals.GetCount(), 10u);
    mesh->AfterRawBuild();
    EXPECT_EQ(mesh->GetVisiblePolygonCount(), 6);
}

TEST(Containers, VertexMapsBorrowAndPersist) {
    QLM_VertexMap3D lender, map;
    lender.Resize(4, false, true);
    lender[3][2] = 7.5f;
    map.Resize(9, false, true);
    map.Borrow(lender);
    EXPECT_EQ(map.GetData(), lender.GetData());
    map.Resize(2, true, false);
    map.Resize(4, true, false);
    EXPECT_EQ(map[3][2], 7.5f);
    try {
        map.Resize(5, true, true);
        FAIL();
    } catch (const QLM_Exception& e) {
        EXPECT_STREQ(e.what(), "Cannot grow and external array to be larger than the original");
    }
    map.EndLoan();
    EXPECT_EQ(map.GetCount(), 0u);
    EXPECT_EQ(lender[3][2], 7.5f);

    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    std::fputs("{\n", file);
    lender.SaveToStream_Text(file);
    std::fputs("}\n", file);
    std::rewind(file);
    EXPECT_TRUE(map.LoadFromStream_Text(file, 0));
    ASSERT_EQ(map.GetCount(), 4u);
    EXPECT_EQ(map[3][2], 7.5f);
    // Another dimension, and a count that the bytes don't bear out, are refused.
    QLM_VertexMap2D pairs;
    std::rewind(file);
    EXPECT_FALSE(pairs.LoadFromStream_Text(file, 0));
    std::fclose(file);
    file = std::tmpfile();
    std::fputs("{\nCount\t2000000000\ndim\t3\ndata\n{\nrawDataSize\t12\ncompressedDataSize\t3\nDATA_BEGIN\nabc\n}\n}\n",
               file);
    std::rewind(file);
    EXPECT_FALSE(map.LoadFromStream_Text(file, 0));
    EXPECT_EQ(map.GetCount(), 4u);
    std::fclose(file);
}

TEST(Containers, JaggedTableRefusesMoreThanCounted) {
    QLM_JaggedTable table;
    table.Begin(3);
    table.Count(0);
    table.Count(2);
    table.Count(2);
    table.Allocate();
    table.Add(2, 9);
    table.Add(0, 5);
    table.Add(2, 8);
    EXPECT_EQ(table.GetCount(1), 0);
    EXPECT_EQ(table.Get(2, 1), 8);
    try {
        table.Add(0, 6);
        FAIL();
    } catch (const QLM_Exception& e) {
        EXPECT_STREQ(e.what(), "(Table[i][0] > Histogram[i]) 2, 1, i = 0 of 3, value = 6");
    }
}

TEST(Containers, MarkersAreSetOnceByAnyThread) {
    QLM_MarkerSet markers;
    markers.Reset(1000);
    std::atomic<int> wins{0};
    QLM_ThreadCrunchEachThread([&](const ThreadCrunchRange&) {
        for (int i = 0; i < 1000; i += 3) wins += markers.Set(i);
    }, "Marker_Test");
    EXPECT_EQ(wins, 334);
    EXPECT_TRUE(markers.Has(999));
    EXPECT_FALSE(markers.Has(998));
    markers.Clear(999);
    EXPECT_FALSE(markers.Has(999));
    EXPECT_TRUE(markers.Has(996));
    markers.Reset(1000);
    EXPECT_FALSE(markers.Has(0));
}

TEST(Containers, DisplayGroupRowsKeepWhatOverlaps) {
    BigFlagArray flags, other;
    flags.SetSizes(8, 3);
    flags.SetFlag(0, 0, true);
    flags.SetFlag(2, 7, true);
    flags.SetFlag(2, 6, true);
    EXPECT_EQ(flags.GetRowBytes(), 1);
    flags.SetSizes(9, 4);
    EXPECT_EQ(flags.GetRowBytes(), 2);
    flags.SetFlag(3, 8, true);
    EXPECT_TRUE(flags.GetFlag(0, 0) && flags.GetFlag(2, 7) && flags.GetFlag(3, 8));
    EXPECT_FALSE(flags.GetFlag(1, 7) || flags.GetFlag(3, 0));
    flags.SetSizes(7, 4);
    flags.SetSizes(9, 4);
    EXPECT_TRUE(flags.GetFlag(2, 6));
    EXPECT_FALSE(flags.GetFlag(2, 7) || flags.GetFlag(3, 8)); // cut off for good
    other.SetSizes(9, 4);
    other.SetFlag(1, 8, true);
    EXPECT_TRUE(flags.Merge(other));
    EXPECT_TRUE(flags.GetFlag(1, 8) && flags.GetFlag(2, 6));
    other.SetSizes(9, 5);
    EXPECT_FALSE(flags.Merge(other));
}

TEST(Containers, TransformTurnsAndScalesAboutTheMiddle) {
    // The box 0..2, 0..4, 0..6 has its middle at (1, 2, 3).
    QLM_Object object;
    QLM_Mesh* mesh = FillMesh(&object, {0, 0, 0, 2, 4, 6, 2, 2, 3}, {}, {Plain({0, 1, 2})});
    object.SetMesh(mesh);
    mesh->AfterRawBuild();
    EXPECT_TRUE(mesh->IsIdentity());
    EXPECT_EQ(mesh->TransformedBoundsMax[2], 6.0f);

    // Scale x by 3, turn a quarter about z (x to y), move by (10, 20, 30).
    mesh->Transform_Scale[0] = 3.0f;
    const float quarter[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::copy_n(quarter, 16, mesh->Transform_RotationMatrix);
    for (int k = 0; k < 3; ++k) mesh->Transform_Pos[k] = 10.0f * static_cast<float>(k + 1);
    object.ResolveMorphsAndBounds(true);
    EXPECT_FALSE(mesh->IsIdentity());
    // (2, 2, 3) is (1, 0, 0) from the middle: scaled (3, 0, 0), turned (0, 3, 0).
    const std::vector<float> expected = {11, 25, 33};
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(mesh->ResolvedVertices[2][k], expected[k], 1e-5f);
    // (0, 0, 0) is (-1, -2, -3): scaled (-3, -2, -3), turned (2, -3, -3).
    const std::vector<float> minimum = {9, 19, 30}, maximum = {13, 25, 36};
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(mesh->TransformedBoundsMin[k], minimum[k], 1e-4f);
        EXPECT_NEAR(mesh->TransformedBoundsMax[k], maximum[k], 1e-4f);
    }
    EXPECT_EQ(mesh->ResolvedBoundsMax[0], 2.0f); // taken before the move
    float back[3];
    MatrixTransformPoint(mesh->GetInverseWorldMatrix(), mesh->ResolvedVertices[2], back);
    EXPECT_NEAR(back[0], 2.0f, 1e-5f);
    EXPECT_NEAR(back[2], 3.0f, 1e-5f);

    // Without a visible vertex the box is zero, and hidden vertices stay where the base has them.
    mesh->SetPolygonFlag(0, ePFlag_Hidden);
    mesh->InvalidateVisibleLists();
    object.ResolveMorphsAndBounds(true);
    EXPECT_EQ(mesh->TransformedBoundsMax[0], 0.0f);
    EXPECT_EQ(mesh->ResolvedVertices[2][0], 2.0f);
}
