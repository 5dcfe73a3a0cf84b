#include "Geometry/QLM_Octree.h"

#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_PointBox.h"
#include "Geometry/QLM_ThreadStamps.h"

#include <atomic>

namespace {
constexpr int maximumDepth = 6;

/// Narrows a box to child `child`: 0 is min, min, min; 1 max x; 2 max x, max y; 3 max y; 4..7 the same with max z.
void NarrowToChild(float* minimum, float* maximum, int child) {
    const bool high[3] = {child % 4 == 1 || child % 4 == 2, child % 4 >= 2, child >= 4};
    for (int k = 0; k < 3; ++k) {
        const float centre = 0.5f * minimum[k] + 0.5f * maximum[k];
        (high[k] ? minimum : maximum)[k] = centre;
    }
}

/// The leaf that holds a point of the root box, counted in tree order. Both halves of a box contain the plane between
/// them; the lower child number wins, which for x is the high half where y is high.
int FindLeaf(const float* point, const QLM_PointBox& rootBox, int depth) {
    float minimum[3], maximum[3];
    rootBox.CopyTo(minimum, maximum);
    int leaf = 0;
    for (int level = 0; level < depth; ++level) {
        float centre[3];
        for (int k = 0; k < 3; ++k) centre[k] = 0.5f * minimum[k] + 0.5f * maximum[k];
        const bool z = point[2] > centre[2], y = point[1] > centre[1];
        const bool x = y ? point[0] >= centre[0] : point[0] > centre[0];
        leaf = leaf * 8 + (z ? 4 : 0) + (y ? (x ? 2 : 3) : (x ? 1 : 0));
        const bool high[3] = {x, y, z};
        for (int k = 0; k < 3; ++k) {
            minimum[k] = high[k] ? centre[k] : minimum[k];
            maximum[k] = high[k] ? maximum[k] : centre[k];
        }
    }
    return leaf;
}

void ClearFlags(QLM_OctreeNode<int32_t>* node, uint32_t bits) {
    node->Flags &= ~bits;
    for (auto& child : node->Children)
        if (child) ClearFlags(child.get(), bits);
}
} // namespace

/// Scratch of one build. Leaves are those of the full tree, counted in tree order.
struct QLM_OctreeMeshContainer::Build {
    QLM_PointBox box;                              ///< of the visible raw vertices
    std::unique_ptr<int32_t[]> vertexLeaf;         ///< leaf of each vertex, -1 for hidden ones
    std::unique_ptr<int32_t[]> polygonVertex; ///< the vertex through which a polygon comes to its leaf, -1 for none
    std::vector<int32_t> vertexStart, polygonStart; ///< range of each leaf in the visible lists, leaf count + 1
};

QLM_OctreeMeshContainer::QLM_OctreeMeshContainer() = default;
QLM_OctreeMeshContainer::~QLM_OctreeMeshContainer() = default;

void QLM_OctreeMeshContainer::BuildOctree() {
    QLM_TRACE(1);
    InvalidateOctree();
    build = std::make_unique<Build>();
    FindVertexLeaves();
    FindPolygonVertices();
    AssignRanges();
    float minimum[3], maximum[3];
    build->box.CopyTo(minimum, maximum);
    root = MakeNode(nullptr, 0, minimum, maximum);
    BuildPolygonLeaves();
    FindOuterVertices();
    build.reset();
    OctreeBoundsChanged();
}

void QLM_OctreeMeshContainer::FindVertexLeaves() {
    const QLM_SimpleArray<int32_t>& visible = mesh->GetVisibleVertices();
    build->box = QLM_CrunchBox(visible.GetCount(), "Octree_Box_ThreadFunc",
                               [&](int i, QLM_PointBox& box) { box.Add(mesh->Vertices[visible[i]]); });
    const int vertexCount = mesh->GetVCount();
    build->vertexLeaf = std::make_unique_for_overwrite<int32_t[]>(vertexCount);
    std::fill_n(build->vertexLeaf.get(), vertexCount, -1);
    QLM_ThreadCrunch(visible.GetCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i)
            build->vertexLeaf[visible[i]] = FindLeaf(mesh->Vertices[visible[i]], build->box, octreeDepth);
    }, "Octree_Leaves_ThreadFunc");
}

void QLM_OctreeMeshContainer::FindPolygonVertices() {
    // Leaves take polygons in tree order and their vertices in ascending order, so the smallest pair decides.
    const QLM_PolygonView view = mesh->GetPolygonView();
    const int32_t* leaf = build->vertexLeaf.get();
    build->polygonVertex = std::make_unique_for_overwrite<int32_t[]>(mesh->GetPCount());
    QLM_ThreadCrunch(mesh->GetPCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int p = range.start; p < range.end; ++p) {
            int best = -1;
            const int count = mesh->HasPolygonFlag(p, ePFlag_Hidden) ? 0 : view.polygons[p].count;
            for (int i = 0; i < count; ++i) {
                const int v = view.GetVertex(p, i);
                if (leaf[v] < 0) continue;
                if (best < 0 || leaf[v] < leaf[best] || (leaf[v] == leaf[best] && v < best)) best = v;
            }
            build->polygonVertex[p] = best;
        }
    }, "Octree_Polygons_ThreadFunc");
}

void QLM_OctreeMeshContainer::AssignRanges() {
    const int leafCount = 1 << (3 * octreeDepth);
    const int32_t* leaf = build->vertexLeaf.get();

    // Sort the vertices by leaf, descending within each.
    QLM_SimpleArray<int32_t>& vertices = mesh->GetVisibleVertices();
    build->vertexStart.assign(leafCount + 1, 0);
    for (const int32_t v : vertices) ++build->vertexStart[leaf[v] + 1];
    for (int i = 0; i < leafCount; ++i) build->vertexStart[i + 1] += build->vertexStart[i];
    std::vector<int32_t> end(build->vertexStart.begin() + 1, build->vertexStart.end());
    const int vertexCount = vertices.GetCount();
    auto sorted = std::make_unique_for_overwrite<int32_t[]>(vertexCount);
    for (const int32_t v : vertices) sorted[--end[leaf[v]]] = v;
    std::copy_n(sorted.get(), vertexCount, vertices.GetData());

    // Let each vertex hand out the polygons that come through it. Going down through vertices and rows gives the
    // reverse of the order in which a leaf takes them up.
    std::vector<int32_t> found[QLM_MaximumThreads];
    std::vector<std::atomic<int32_t>> polygonsOfLeaf(leafCount);
    QLM_ThreadCrunch(vertexCount, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        std::vector<int32_t>& out = found[range.threadIndex];
        out.reserve(range.end - range.start);
        for (int i = range.start; i < range.end; ++i) {
            const int v = sorted[i];
            const int32_t* row = mesh->VertexPolygons.GetRow(v);
            const size_t before = out.size();
            for (int k = row[0]; k >= 1; --k)
                if (build->polygonVertex[row[k]] == v && (k == row[0] || row[k] != row[k + 1])) out.push_back(row[k]);
            if (out.size() > before)
                polygonsOfLeaf[leaf[v]].fetch_add(static_cast<int32_t>(out.size() - before), std::memory_order_relaxed);
        }
    }, "Octree_Ranges_ThreadFunc");

    build->polygonStart.assign(leafCount + 1, 0);
    for (int i = 0; i < leafCount; ++i) build->polygonStart[i + 1] = build->polygonStart[i] + polygonsOfLeaf[i];
    QLM_SimpleArray<int32_t>& polygons = mesh->GetVisiblePolygons();
    polygons.Resize(build->polygonStart[leafCount], false, false);
    int32_t* next = polygons.GetData();
    for (const std::vector<int32_t>& part : found) next = std::copy(part.begin(), part.end(), next);
}

std::unique_ptr<QLM_OctreeMeshContainer::Node> QLM_OctreeMeshContainer::MakeNode(Node* parent, int firstLeaf,
                                                                                 const float* minimum,
                                                                                 const float* maximum) {
    auto node = std::make_unique<Node>();
    node->Depth = parent ? parent->Depth + 1 : 0;
    node->Parent = parent;
    node->Mesh = mesh;
    std::copy_n(minimum, 3, node->BuildBoundsMin);
    std::copy_n(maximum, 3, node->BuildBoundsMax);
    const int levelsBelow = octreeDepth - node->Depth;
    const int endLeaf = firstLeaf + (1 << (3 * levelsBelow));
    node->FirstVertex = build->vertexStart[firstLeaf];
    node->EndVertex = build->vertexStart[endLeaf];
    node->FirstPolygon = build->polygonStart[firstLeaf];
    node->EndPolygon = build->polygonStart[endLeaf];
    if (node->FirstVertex == node->EndVertex) return node;
    if (levelsBelow == 0) {
        Leaves.push_back(node.get());
        return node;
    }
    const int leavesOfChild = 1 << (3 * (levelsBelow - 1));
    for (int child = 0; child < 8; ++child) {
        const int first = firstLeaf + child * leavesOfChild;
        if (build->vertexStart[first] == build->vertexStart[first + leavesOfChild]) continue;
        float low[3], high[3];
        std::copy_n(minimum, 3, low);
        std::copy_n(maximum, 3, high);
        NarrowToChild(low, high, child);
        node->Children[child] = MakeNode(node.get(), first, low, high);
        node->Flags |= eNode_HasChildren;
    }
    return node;
}

void QLM_OctreeMeshContainer::BuildPolygonLeaves() {
    PolygonLeaf.Resize(mesh->GetPCount(), false, false);
    std::fill(PolygonLeaf.begin(), PolygonLeaf.end(), -1);
    const QLM_SimpleArray<int32_t>& polygons = mesh->GetVisiblePolygons();
    const bool hasUVs = mesh->GetVTCount() > 0;
    QLM_ThreadCrunch(static_cast<int64_t>(Leaves.size()), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i) {
            Node& leaf = *Leaves[i];
            float minUV[2] = {leaf.MinUV[0], leaf.MinUV[1]}, maxUV[2] = {leaf.MaxUV[0], leaf.MaxUV[1]};
            for (int k = leaf.FirstPolygon; k < leaf.EndPolygon; ++k) {
                const QLM_Polygon& polygon = mesh->GetPolygon(polygons[k]);
                PolygonLeaf[polygons[k]] = i;
                for (int c = 0; hasUVs && c < polygon.count; ++c) {
                    const float* uv = mesh->TextureVertices[polygon.corners[c].textureVertex];
                    for (int axis = 0; axis < 2; ++axis) {
                        minUV[axis] = std::min(minUV[axis], uv[axis]);
                        maxUV[axis] = std::max(maxUV[axis], uv[axis]);
                    }
                }
            }
            std::copy_n(minUV, 2, leaf.MinUV);
            std::copy_n(maxUV, 2, leaf.MaxUV);
        }
    }, "Octree_PolygonLeaves_ThreadFunc");
}

void QLM_OctreeMeshContainer::FindOuterVertices() {
    // The boxes hold all polygons of a leaf's vertices, that is its vertices and their neighbours in other leaves.
    const QLM_SimpleArray<int32_t>& vertices = mesh->GetVisibleVertices();
    const int32_t* leafOf = build->vertexLeaf.get();
    const int leafCount = static_cast<int>(Leaves.size());
    QLM_ThreadStamps stamps(mesh->GetVCount());
    std::vector<int32_t> found[QLM_MaximumThreads];
    outerStart.assign(leafCount + 1, 0);
    QLM_ThreadCrunch(leafCount, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t* lastLeaf = stamps.Get(range.threadIndex);
        std::vector<int32_t>& out = found[range.threadIndex];
        for (int i = range.start; i < range.end; ++i) {
            const size_t before = out.size();
            const int32_t own = leafOf[vertices[Leaves[i]->FirstVertex]];
            for (int k = Leaves[i]->FirstVertex; k < Leaves[i]->EndVertex; ++k) {
                const int32_t* row = mesh->VertexNeighbors.GetRow(vertices[k]);
                for (int n = 1; n <= row[0]; ++n) {
                    if (leafOf[row[n]] == own || lastLeaf[row[n]] == i + 1) continue;
                    lastLeaf[row[n]] = i + 1;
                    out.push_back(row[n]);
                }
            }
            outerStart[i + 1] = static_cast<int32_t>(out.size() - before);
        }
    }, "Octree_Outer_ThreadFunc");
    for (int i = 0; i < leafCount; ++i) outerStart[i + 1] += outerStart[i];
    outerVertices.clear();
    outerVertices.reserve(outerStart[leafCount]);
    for (const std::vector<int32_t>& part : found) outerVertices.insert(outerVertices.end(), part.begin(), part.end());
}

void QLM_OctreeMeshContainer::OctreeBoundsChanged() {
    if (!root) return BuildOctree();
    QLM_TRACE(1);
    ReleaseDrawingResources();
    const QLM_SimpleArray<int32_t>& vertices = mesh->GetVisibleVertices();
    QLM_ThreadCrunch(static_cast<int64_t>(Leaves.size()), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i) {
            QLM_PointBox box;
            for (int k = Leaves[i]->FirstVertex; k < Leaves[i]->EndVertex; ++k)
                box.Add(mesh->ResolvedVertices[vertices[k]]);
            for (int k = outerStart[i]; k < outerStart[i + 1]; ++k) box.Add(mesh->ResolvedVertices[outerVertices[k]]);
            box.CopyTo(Leaves[i]->BoundsMin, Leaves[i]->BoundsMax);
        }
    }, "Octree_Bounds_ThreadFunc");
    UniteChildBoxes(root.get());
}

void QLM_OctreeMeshContainer::UniteChildBoxes(Node* node) {
    if (node->IsLeaf()) return;
    QLM_PointBox box;
    for (auto& child : node->Children) {
        if (!child) continue;
        UniteChildBoxes(child.get());
        box.Add(child->BoundsMin);
        box.Add(child->BoundsMax);
        for (int axis = 0; axis < 2; ++axis) {
            node->MinUV[axis] = std::min(node->MinUV[axis], child->MinUV[axis]);
            node->MaxUV[axis] = std::max(node->MaxUV[axis], child->MaxUV[axis]);
        }
    }
    box.CopyTo(node->BoundsMin, node->BoundsMax);
}

QLM_OctreeMeshContainer::Node* QLM_OctreeMeshContainer::GetRoot() {
    if (!root) BuildOctree();
    return root.get();
}

const std::vector<QLM_OctreeMeshContainer::Node*>& QLM_OctreeMeshContainer::GetLeaves() {
    if (!root) BuildOctree();
    return Leaves;
}

void QLM_OctreeMeshContainer::InvalidateOctree() {
    if (!root) return;
    root.reset();
    Leaves.clear();
    outerVertices.clear();
    outerStart.clear();
    PolygonLeaf.Resize(0, false, false);
    mesh->ForgetVisibleLists(); // they stand in the order of its leaves
}

void QLM_OctreeMeshContainer::SetDepth(int depth) {
    depth = std::clamp(depth, 0, maximumDepth);
    if (depth == octreeDepth) return;
    InvalidateOctree();
    octreeDepth = depth;
}

void QLM_OctreeMeshContainer::ReleaseDrawingResources() {
    if (root) ClearFlags(root.get(), eNode_DrawingValid);
}

void QLM_OctreeMeshContainer::ClearSurfaceChangedFlags() {
    if (root) ClearFlags(root.get(), eNode_Touched | eNode_TouchedB);
}

void QLM_OctreeMeshContainer::TouchNode(Node* node) {
    for (; node; node = node->Parent) node->Flags |= eNode_Touched;
}

void QLM_OctreeMeshContainer::TouchUVRange(const float* range) {
    for (Node* leaf : GetLeaves())
        if (leaf->MinUV[0] <= range[2] && leaf->MaxUV[0] >= range[0] && leaf->MinUV[1] <= range[3] &&
            leaf->MaxUV[1] >= range[1])
            TouchNode(leaf);
}
