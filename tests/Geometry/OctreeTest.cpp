#include "Geometry/QLM_OctreeIterator.h"
#include "Geometry/QLM_PointBox.h"
#include "Math/QLM_Matrix.h"
#include "MeshTestSupport.h"

namespace {
using Node = QLM_OctreeMeshContainer::Node;

/// The build told step by step: all boxes, one point and one polygon at a time.
struct PlainTree {
    struct Box {
        float min[3], max[3];
        std::vector<int> vertices, polygons;
    };
    std::vector<Box> leaves;

    PlainTree(QLM_Mesh& mesh, int depth) {
        Box root{};
        bool any = false;
        for (int v = 0; v < mesh.GetVCount(); ++v) {
            if (mesh.HasVertexFlag(v, eVFlag_Hidden)) continue;
            for (int k = 0; k < 3; ++k) {
                root.min[k] = any ? std::min(root.min[k], mesh.Vertices[v][k]) : mesh.Vertices[v][k];
                root.max[k] = any ? std::max(root.max[k], mesh.Vertices[v][k]) : mesh.Vertices[v][k];
            }
            any = true;
        }
        Split(root, depth);
        for (int v = 0; v < mesh.GetVCount(); ++v)
            if (!mesh.HasVertexFlag(v, eVFlag_Hidden))
                leaves[Descend(root, mesh.Vertices[v], depth)].vertices.push_back(v);
        std::set<int> marked;
        for (Box& leaf : leaves)
            for (const int v : leaf.vertices)
                for (int i = 0; i < mesh.GetVertexPolygonCount(v); ++i) {
                    const int p = mesh.GetVertexPolygon(v, i);
                    if (!mesh.IsPolygonHidden(p) && marked.insert(p).second) leaf.polygons.push_back(p);
                }
    }

    static Box ChildOf(const Box& box, int child) {
        static const int high[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                       {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
        Box result = box;
        for (int k = 0; k < 3; ++k) (high[child][k] ? result.min : result.max)[k] = (box.min[k] + box.max[k]) / 2;
        return result;
    }
    void Split(const Box& box, int depth) {
        if (depth == 0) leaves.push_back(box);
        else for (int child = 0; child < 8; ++child) Split(ChildOf(box, child), depth - 1);
    }
    static int Descend(Box box, const float* point, int depth) {
        int leaf = 0;
        for (; depth > 0; --depth)
            for (int child = 0; child < 8; ++child) {
                const Box part = ChildOf(box, child);
                bool inside = true;
                for (int k = 0; k < 3; ++k) inside = inside && point[k] >= part.min[k] && point[k] <= part.max[k];
                if (!inside) continue;
                box = part;
                leaf = leaf * 8 + child;
                break;
            }
        return leaf;
    }
};

void CheckNode(const Node* node, QLM_Mesh& mesh) {
    for (int i = node->FirstPolygon; i < node->EndPolygon; ++i) {
        const int p = mesh.GetVisiblePolygons()[i];
        for (int c = 0; c < mesh.GetPolygonVertexCount(p); ++c)
            for (int k = 0; k < 3; ++k) {
                const float x = mesh.ResolvedVertices[mesh.GetPolygonVertex(p, c)][k];
                ASSERT_TRUE(x >= node->BoundsMin[k] && x <= node->BoundsMax[k]);
            }
    }
    if (node->IsLeaf()) return;
    int polygon = node->FirstPolygon, vertex = node->FirstVertex;
    for (const auto& child : node->Children) {
        if (!child) continue;
        EXPECT_EQ(child->FirstPolygon, polygon);
        EXPECT_EQ(child->FirstVertex, vertex);
        EXPECT_EQ(child->Parent, node);
        EXPECT_EQ(child->Depth, node->Depth + 1);
        polygon = child->EndPolygon;
        vertex = child->EndVertex;
        CheckNode(child.get(), mesh);
    }
    EXPECT_EQ(node->EndPolygon, polygon);
    EXPECT_EQ(node->EndVertex, vertex);
}

void CheckTree(QLM_Mesh& mesh, int depth) {
    mesh.GetVisibleVertices(); // brings the hidden flags up to date
    PlainTree plain(mesh, depth);
    const std::vector<Node*>& leaves = mesh.GetLeaves();
    size_t next = 0;
    for (const PlainTree::Box& box : plain.leaves) {
        if (box.vertices.empty()) continue;
        ASSERT_LT(next, leaves.size());
        const Node& leaf = *leaves[next];
        const int32_t* vertices = mesh.GetVisibleVertices().GetData();
        const int32_t* polygons = mesh.GetVisiblePolygons().GetData();
        EXPECT_EQ(std::vector<int>(vertices + leaf.FirstVertex, vertices + leaf.EndVertex),
                  std::vector<int>(box.vertices.rbegin(), box.vertices.rend()));
        EXPECT_EQ(std::vector<int>(polygons + leaf.FirstPolygon, polygons + leaf.EndPolygon),
                  std::vector<int>(box.polygons.rbegin(), box.polygons.rend()));
        for (const int p : box.polygons) EXPECT_EQ(mesh.GetLeafOfPolygon(p), static_cast<int>(next));
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(leaf.BuildBoundsMin[k], box.min[k]);
            EXPECT_EQ(leaf.BuildBoundsMax[k], box.max[k]);
        }
        ++next;
    }
    EXPECT_EQ(next, leaves.size());
    CheckNode(mesh.GetRoot(), mesh);
}
} // namespace

TEST(Octree, OrderAndRangesAgreeWithAPlainBuild) {
    for (uint32_t seed = 20; seed < 26; ++seed) {
        SCOPED_TRACE(seed);
        MeshOwner mesh = MakeRandomMesh(seed, true, 200, 250);
        CheckTree(*mesh, 4);
        mesh->SetDepth(3);
        CheckTree(*mesh, 3);
        mesh->SetDepth(0);
        CheckTree(*mesh, 0);
        for (int p = 0; p < 250; p += 2) mesh->SetPolygonFlag(p, ePFlag_Hidden);
        mesh->SetDepth(3);
        mesh->InvalidateVisibleLists();
        CheckTree(*mesh, 3);
        EXPECT_EQ(mesh->GetVisiblePolygonCount(), 125);
        EXPECT_EQ(mesh->GetLeafOfPolygon(0), -1);
    }
}

TEST(Octree, BoxesFollowTheShapeAndMembershipStays) {
    MeshOwner mesh = MakeRandomMesh(4, false, 200, 250);
    std::vector<int> leafOf;
    for (int p = 0; p < 250; ++p) leafOf.push_back(mesh->GetLeafOfPolygon(p));
    const Node* root = mesh->GetRoot();
    for (int v = 0; v < 200; ++v) mesh->ResolvedVertices[v][v % 3] += 0.37f * static_cast<float>(v % 5);
    mesh->OctreeBoundsChanged();
    EXPECT_EQ(mesh->GetRoot(), root);
    for (int p = 0; p < 250; ++p) EXPECT_EQ(mesh->GetLeafOfPolygon(p), leafOf[p]);
    CheckNode(root, *mesh);
}

TEST(Octree, NothingVisibleLeavesNoLeaf) {
    MeshOwner mesh = MakeCube();
    EXPECT_EQ(mesh->GetLeaves().size(), 8u); // one corner each
    for (int p = 0; p < 6; ++p) mesh->SetPolygonFlag(p, ePFlag_Hidden);
    mesh->InvalidateVisibleLists();
    EXPECT_TRUE(mesh->GetLeaves().empty());
    EXPECT_EQ(mesh->GetRoot()->BoundsMax[0], 0.0f);
    EXPECT_EQ(mesh->GetRoot()->EndPolygon, 0);
}

TEST(Octree, TouchedRangesReachTheRoot) {
    // Two quads far apart, on the left and the right half of the map.
    MeshOwner mesh = MakeMesh({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 20, 0, 0, 21, 0, 0, 21, 1, 0, 20, 1, 0},
                              {0, 0, 0.4f, 0, 0.4f, 1, 0, 1, 0.6f, 0, 1, 0, 1, 1, 0.6f, 1},
                              {{{0, 0}, {1, 1}, {2, 2}, {3, 3}}, {{4, 4}, {5, 5}, {6, 6}, {7, 7}}});
    const float range[4] = {0.7f, 0.2f, 0.8f, 0.3f};
    mesh->TouchUVRange(range);
    EXPECT_TRUE(mesh->GetRoot()->Flags & eNode_Touched);
    EXPECT_FALSE(mesh->GetLeaves()[mesh->GetLeafOfPolygon(0)]->Flags & eNode_Touched);
    EXPECT_TRUE(mesh->GetLeaves()[mesh->GetLeafOfPolygon(1)]->Flags & eNode_Touched);
    mesh->ClearSurfaceChangedFlags();
    EXPECT_FALSE(mesh->GetRoot()->Flags & eNode_Touched);
    EXPECT_TRUE(mesh->GetRoot()->Flags & eNode_HasChildren);
    const float between[4] = {0.45f, 0.0f, 0.55f, 1.0f};
    mesh->TouchUVRange(between);
    EXPECT_FALSE(mesh->GetRoot()->Flags & eNode_Touched);
}

namespace {
/// What a walk yields, compared with all leaves whose box (or its reflection) passes a plain test.
template <class Test> void CheckWalk(QLM_Mesh& mesh, const QLM_OctreeCull& cull, Test test) {
    using Element = QLM_OctreeIterator::Element;
    std::vector<int> vertices, polygons, wantedVertices, wantedPolygons;
    QLM_OctreeIterator overVertices(mesh, Element::Vertices, cull), overPolygons(mesh, Element::Polygons, cull);
    for (int v = overVertices.Begin(); v >= 0; v = overVertices.Next()) vertices.push_back(v);
    for (int p = overPolygons.Begin(); p >= 0; p = overPolygons.Next()) {
        polygons.push_back(p);
        EXPECT_EQ(overPolygons.GetLeaf(), mesh.GetLeaves()[mesh.GetLeafOfPolygon(p)]);
    }
    EXPECT_EQ(overVertices.Next(), -1);
    for (const Node* leaf : mesh.GetLeaves()) {
        QLM_PointBox box, mirrored;
        for (int i = 0; i < 8; ++i) {
            float corner[3];
            for (int k = 0; k < 3; ++k) corner[k] = i >> k & 1 ? leaf->BoundsMax[k] : leaf->BoundsMin[k];
            box.Add(corner);
            corner[cull.SymmetryAxis] = 2 * cull.SymmetryOffset - corner[cull.SymmetryAxis];
            mirrored.Add(corner);
        }
        if (!test(box) && !(cull.Symmetric && test(mirrored))) continue;
        for (int i = leaf->FirstVertex; i < leaf->EndVertex; ++i)
            wantedVertices.push_back(mesh.GetVisibleVertices()[i]);
        for (int i = leaf->FirstPolygon; i < leaf->EndPolygon; ++i)
            wantedPolygons.push_back(mesh.GetVisiblePolygons()[i]);
    }
    EXPECT_EQ(vertices, wantedVertices);
    EXPECT_EQ(polygons, wantedPolygons);
    const size_t all = static_cast<size_t>(mesh.GetVisibleVertexCount());
    EXPECT_TRUE(!vertices.empty() && vertices.size() < all) << vertices.size() << " of " << all;
}

/// The box's corners on the screen meet a rectangle, to within a margin.
bool MeetsOnScreen(const QLM_PointBox& box, const float* matrix, const float* rectangle, float margin) {
    QLM_PointBox screen;
    for (int i = 0; i < 8; ++i) {
        float corner[3];
        for (int k = 0; k < 3; ++k) corner[k] = i >> k & 1 ? box.max[k] : box.min[k];
        MatrixTransformPoint(matrix, corner, corner);
        screen.Add(corner);
    }
    return screen.max[0] >= rectangle[0] - margin && screen.max[1] >= rectangle[1] - margin &&
           screen.min[0] <= rectangle[2] + margin && screen.min[1] <= rectangle[3] + margin;
}
} // namespace

TEST(Octree, WalksOverTheLeavesThatPass) {
    MeshOwner mesh = MakeRandomMesh(9, true, 400, 250);
    QLM_OctreeCull cull;
    float turn[16];
    MatrixRotation(turn, 1, 0.7f);
    MatrixRotation(cull.ModelToClip, 0, 0.4f);
    float matrix[16];
    MatrixMultiply(turn, cull.ModelToClip, matrix);
    matrix[12] = 1.3f; // most of it beyond the right edge
    matrix[13] = 0.4f;
    std::copy_n(matrix, 16, cull.ModelToClip);
    const float view[4] = {-1, -1, 1, 1}, brush[4] = {0.2f, 0.1f, 0.4f, 0.2f}, centre[3] = {-0.8f, -0.7f, 0.6f};
    const auto nearSphere = [&](const QLM_PointBox& box) {
        float squared = 0;
        for (int k = 0; k < 3; ++k) {
            const float outside = std::max({0.0f, box.min[k] - centre[k], centre[k] - box.max[k]});
            squared += outside * outside;
        }
        return squared <= 0.09f;
    };
    cull.ByView = true;
    CheckWalk(*mesh, cull, [&](const QLM_PointBox& b) { return MeetsOnScreen(b, matrix, view, 0); });
    cull.ByRectangle = true;
    std::copy_n(brush, 4, cull.Rectangle);
    const auto underBrush = [&](const QLM_PointBox& b) {
        return MeetsOnScreen(b, matrix, view, 0) && MeetsOnScreen(b, matrix, brush, 0.01f);
    };
    CheckWalk(*mesh, cull, underBrush);
    cull.Symmetric = true;
    cull.SymmetryOffset = 0.1f;
    CheckWalk(*mesh, cull, underBrush);
    cull.ByView = cull.ByRectangle = false;
    cull.BySphere = true;
    std::copy_n(centre, 3, cull.SphereCentre);
    cull.SphereRadius = 0.3f;
    CheckWalk(*mesh, cull, nearSphere);

    // Without a switch everything comes, once; with nothing visible the walk ends at once.
    QLM_OctreeIterator all(*mesh, QLM_OctreeIterator::Element::Polygons, {});
    std::set<int> seen;
    int count = 0;
    for (int p = all.Begin(); p >= 0; p = all.Next(), ++count) seen.insert(p);
    EXPECT_EQ(count, 250);
    EXPECT_EQ(seen.size(), 250u);
    for (int p = 0; p < 250; ++p) mesh->SetPolygonFlag(p, ePFlag_Hidden);
    mesh->InvalidateVisibleLists();
    QLM_OctreeIterator none(*mesh, QLM_OctreeIterator::Element::Vertices, {});
    EXPECT_EQ(none.Begin(), -1);
}
