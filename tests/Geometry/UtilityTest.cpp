// Names, sizes, weights of strokes and the other small services.

#include "MeshTestSupport.h"

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_AffectedList.h"
#include "Geometry/QLM_PointTransform.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Support/TestScene.h"

TEST(Utility, NamesAreMadeUnique) {
    using List = std::vector<std::string>;
    const auto unique = QLM_UtilityManager::GetUniqueName;
    EXPECT_EQ(unique(List{}, "Morph", "", ""), "Morph");
    EXPECT_EQ(unique(List{"Morph"}, "Morph", "", ""), "Morph (1)");
    EXPECT_EQ(unique(List{"Morph", "Morph (7)", "Morph (2)"}, "Morph", "", ""), "Morph (8)");
    EXPECT_EQ(unique(List{"Morph (3)"}, "Morph", "", ""), "Morph"); // only the exact name takes it
    EXPECT_EQ(unique(List{"Morph", "Morph (x)", "Morph(5)", "Morph (6) ", "Morph ()", "Morphs (9)"}, "Morph", "", ""),
              "Morph (1)");
    EXPECT_EQ(unique(List{"Morph", "Morph (99999999999)"}, "Morph", "", ""), "Morph (1)");
    EXPECT_EQ(unique(List{"skin.png", "skin (4).png", "skin (9).jpg"}, "skin", "", "png"), "skin (5).png");
    EXPECT_EQ(unique(List{"skin.png"}, "skin.png", "", "png"), "skin (1).png");
    EXPECT_EQ(unique(List{"spot", "spot subD", "spot subD (4)"}, "spot", "subD", ""), "spot subD (5)");

    const auto copy = QLM_UtilityManager::GetCopyName;
    EXPECT_EQ(copy(List{"Arm"}, "Arm"), "Arm Copy");
    EXPECT_EQ(copy(List{"Arm", "Arm Copy"}, "Arm Copy"), "Arm Copy (1)");
    EXPECT_EQ(copy(List{"Arm", "Arm Copy", "Arm Copy (3)"}, "Arm Copy (3)"), "Arm Copy (4)");
    EXPECT_EQ(copy(List{"Arm (2)"}, "Arm (2)"), "Arm Copy");
    for (const char* name : {"Arm (2x)", "Arm ()", "Arm(2)", "(2)", ""})
        EXPECT_EQ(copy(List{}, name), std::string(name) + " Copy");
}

TEST(Utility, AffectedListHoldsEachVertexOnce) {
    QLM_AffectedList& list = QLM_AffectedList::Get();
    MeshOwner mesh = MakeCube();
    list.Reset(mesh.Get());
    EXPECT_GE(list.GetCapacity(), 8);
    list.Add(6, 0.25f);
    list.Add(0, 1.0f);
    EXPECT_EQ(list.GetCount(), 2);
    EXPECT_EQ(list.GetEntry(0).Vertex, 6);
    EXPECT_EQ(list.GetEntry(0).Weight, 0.25f);
    EXPECT_TRUE(list.Contains(0) && !list.Contains(1));
    list.Reset(mesh.Get());
    EXPECT_TRUE(list.GetCount() == 0 && !list.Contains(6));

    QLM_AffectedList::AffectedPoint foreign[2] = {{1, 1.0f}, {2, 1.0f}};
    list.Borrow(foreign, 2);
    try {
        list.Add(3, 1.0f);
        FAIL();
    } catch (const QLM_Exception& e) {
        EXPECT_STREQ(e.what(), "ExternalDataNotAllowed");
    }
    list.Reset(mesh.Get());
    list.Add(3, 1.0f);
    EXPECT_EQ(list.GetCount(), 1);
    list.ForgetMesh(mesh.Get());
    EXPECT_FALSE(list.Contains(3));
}

TEST(Utility, PointsAreTurnedByAMatrix) {
    // A quarter about z (x to y), then a move by (10, 20, 30).
    const float matrix[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
    std::vector<float> points;
    for (int i = 0; i < 3000; ++i) points.push_back(static_cast<float>(i));
    std::vector<float> all = points, some = points;
    QLM_MultByMatrix(all.data(), 1000, matrix);
    const int32_t indices[] = {999, 0, 7};
    QLM_MultByMatrixIndexed(some.data(), indices, 3, matrix);
    for (int i = 0; i < 1000; ++i) {
        const float x = points[3 * i], expected[3] = {10 - (x + 1), 20 + x, 30 + x + 2};
        const bool named = i == 0 || i == 7 || i == 999;
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(all[3 * i + k], expected[k]);
            EXPECT_EQ(some[3 * i + k], named ? expected[k] : points[3 * i + k]);
        }
    }
}

TEST(Utility, MorphsFollowTheVertexCount) {
    TestScene scene;
    QLM_Mesh& mesh = *scene.AddObject("quad", {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, {},
                                      {{{0, -1}, {1, -1}, {2, -1}, {3, -1}}})->GetMesh();
    QLM_Morph* morph = mesh.CreateMorph();
    mesh.BeginUsingMorph(morph);
    morph->GetVertex(3)[1] = 5.0f;
    morph->MarkChanged();
    mesh.EndUsingMorph(morph);
    mesh.SetVertexWeight(2, 1.0f);
    mesh.SetVCount(6);
    mesh.AfterRawBuild(); // tells the manager
    EXPECT_EQ(morph->VertexCount, 6);
    EXPECT_FALSE(morph->IsExpanded());
    EXPECT_EQ(mesh.GetSelectedVertexCount(), 1);
    mesh.BeginUsingMorph(morph);
    EXPECT_EQ(morph->GetVertex(3)[1], 5.0f);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(morph->GetVertex(5)[k], 0.0f);
    mesh.EndUsingMorph(morph);
}

TEST(Utility, StrokeWeightsHoldUntilTheyAreInvalidated) {
    // A square towards the viewer, one away from him, and one whose normal (0.8, 0, 0.6) stands aslant.
    TestScene scene;
    QLM_Object* object = scene.AddObject(
        "squares", {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 4, 0, 0, 5, 0, 0, 5, 1, 0, 4, 1, 0, 8, 0, 0, 8.6f, 0, -0.8f,
                    8.6f, 1, -0.8f, 8, 1, 0}, {}, {{{0, -1}, {1, -1}, {2, -1}, {3, -1}},
                    {{7, -1}, {6, -1}, {5, -1}, {4, -1}}, {{8, -1}, {9, -1}, {10, -1}, {11, -1}}});
    QLM_Mesh* mesh = object->GetMesh();
    scene.SetView(10.0f);
    QLM_CullingManager& culling = *QLM_GetManagers().GetCullingManager();
    culling.RefreshEffectiveMethod();
    ASSERT_EQ(culling.GetEffectiveMethod(), QLM_CullingMethod::Backface);
    QLM_VertexWeightManager& weights = *QLM_GetManagers().GetVertexWeightManager();

    weights.UseForStroke(false);
    EXPECT_FALSE(weights.UsesSelection()); // nothing is selected, so everything takes part
    EXPECT_FALSE(weights.IsValid(mesh));
    weights.PrepareMesh(mesh);
    EXPECT_TRUE(weights.IsValid(mesh));
    EXPECT_EQ(weights.GetVertexWeight(mesh, 0), 1.0f);
    EXPECT_EQ(weights.GetVertexWeight(mesh, 5), 0.0f);
    QLM_GetManagers().GetViewportManager()->SetStandardView(scene.GetViewport(), QLM_StandardView::Back);
    EXPECT_EQ(weights.GetVertexWeight(mesh, 5), 0.0f); // culled when it was asked first
    weights.ResetMesh(mesh);
    EXPECT_FALSE(weights.IsValid(mesh));
    weights.PrepareMesh(mesh);
    EXPECT_EQ(weights.GetVertexWeight(mesh, 5), 1.0f);
    EXPECT_EQ(weights.GetVertexWeight(mesh, 0), 0.0f);

    // Selection times fade: n.v = 0.6, (0.36 - 0.05) / 0.95 / (1 - 0.8^3) = 0.668680.
    scene.SetView(10.0f);
    mesh->SetVertexWeight(8, 0.5f);
    weights.UseForStroke(true);
    EXPECT_TRUE(weights.UsesSelection());
    weights.InvalidateAll();
    weights.PrepareMesh(mesh);
    EXPECT_NEAR(weights.GetVertexWeight(mesh, 8), 0.334340f, 1e-4f);
    EXPECT_EQ(weights.GetVertexWeight(mesh, 0), 0.0f);
    mesh->ClearSelection();
    weights.UseForStroke(true);
    EXPECT_NEAR(weights.GetVertexWeight(mesh, 8), 0.334340f, 1e-4f); // still of that period
    weights.InvalidateAll();
    EXPECT_NEAR(weights.GetVertexWeight(mesh, 8), 0.668680f, 1e-4f);

    // A mesh of another length is not current, and one that goes is forgotten.
    mesh->SetVCount(13);
    EXPECT_FALSE(weights.IsValid(mesh));
    mesh->AfterRawBuild();
    weights.PrepareMesh(mesh);
    weights.DeleteAll();
    EXPECT_FALSE(weights.IsValid(mesh));
}
