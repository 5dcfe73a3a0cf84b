#include "Geometry/QLM_Octree.h"

#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_PointBox.h"
#include "Geometry/QLM_ThreadStamps.h"

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

/// Finds the leaf that holds a point of the root box, counted in tree order. Both halves of a box contain the plane
/// between them; the lower child number wins, which for x is the high half where y is high.
class LeafFinder {
  public:
    LeafFinder(const QLM_PointBox& box, int depthIn) : depth(depthIn), cells(1 << depthIn) {
        box.CopyTo(minimum, maximum);
        for (int k = 0; k < 3; ++k) {
            planes[k].resize(cells - 1);
            AddPlanes(k, 0, cells, minimum[k], maximum[k]);
            const float side = maximum[k] - minimum[k];
            scale[k] = side > 0.0f ? static_cast<float>(cells) / side : 0.0f;
        }
        for (int i = 0; i < cells; ++i) {
            digits[i] = 0;
            for (int bit = 0; bit < depth; ++bit) digits[i] |= (i >> bit & 1) << (3 * bit);
        }
    }

    int Find(const float* point) const {
        const int y = FindCell(1, point[1]), z = FindCell(2, point[2]);
        int x = FindCell(0, point[0]);
        // On a plane of x the halves of y decide, level by level; the cell found is the low side of it.
        if (x < cells - 1 && point[0] == planes[0][x]) x = DescendX(point[0], y);
        return digits[z] << 2 | digits[y] << 1 | digits[x ^ y];
    }

  private:
    /// The planes that halve cells [first, end) again and again, in ascending order.
    void AddPlanes(int axis, int first, int end, float low, float high) {
        if (end - first < 2) return;
        const int middle = (first + end) / 2;
        const float centre = 0.5f * low + 0.5f * high;
        planes[axis][middle - 1] = centre;
        AddPlanes(axis, first, middle, low, centre);
        AddPlanes(axis, middle, end, centre, high);
    }
    /// How many planes lie strictly below a coordinate: a guess that steps to the right place.
    int FindCell(int axis, float x) const {
        const float* plane = planes[axis].data();
        const float guess = (x - minimum[axis]) * scale[axis];
        int cell = guess > 0.0f ? static_cast<int>(std::min(guess, static_cast<float>(cells - 1))) : 0;
        while (cell > 0 && !(x > plane[cell - 1])) --cell;
        while (cell < cells - 1 && x > plane[cell]) ++cell;
        return cell;
    }
    int DescendX(float x, int y) const {
        int first = 0, end = cells;
        for (int level = depth - 1; level >= 0; --level) {
            const int middle = (first + end) / 2;
            const float plane = planes[0][middle - 1];
            const bool high = y >> level & 1 ? x >= plane : x > plane;
            (high ? first : end) = middle;
        }
        return first;
    }

    int depth, cells;
    float minimum[3], maximum[3], scale[3];
    std::vector<float> planes[3];
    int digits[1 << maximumDepth]; ///< the bits of a cell, three places apart
};

void ClearFlags(QLM_OctreeNode<int32_t>* node, uint32_t bits) {
    node->Flags &= ~bits;
    for (auto& child : node->Children)
        if (child) ClearFlags(child.get(), bits);
}
} // namespace

/// Scratch of one build. Leaves are those of the full tree, counted in tree order, until the tree stands.
struct QLM_OctreeMeshContainer::Build {
    /// A polygon with corners in other leaves as well.
    struct Straddler { int32_t leaf, polygon; };
    struct UVRange { float min[2] = {2, 2}, max[2] = {-2, -2}; };

    QLM_PointBox box;                               ///< of the visible raw vertices
    std::unique_ptr<int32_t[]> vertexLeaf;          ///< leaf of each vertex, -1 for hidden ones
    std::unique_ptr<int32_t[]> polygonVertex;       ///< the vertex that brings a polygon to its leaf, -1 for none
    std::vector<Straddler> straddlers[QLM_MaximumThreads];
    std::vector<UVRange> uvRanges[QLM_MaximumThreads]; ///< of each leaf's polygons; empty without UVs
    std::vector<int32_t> vertexStart, polygonStart; ///< range of each leaf in the visible lists, leaf count + 1
    std::vector<int32_t> leafIndex;                 ///< index in Leaves, -1 for what was left out
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
    build->leafIndex.assign(size_t{1} << (3 * octreeDepth), -1);
    root = MakeNode(nullptr, 0, minimum, maximum);
    BuildPolygonLeaves();
    FindOuterVertices();
    build.reset();
    OctreeBoundsChanged();
    if (mesh->HasSelection()) mesh->MarkSelectedLeaves();
}

void QLM_OctreeMeshContainer::FindVertexLeaves() {
    const QLM_SimpleArray<int32_t>& visible = mesh->GetVisibleVertices();
    build->box = QLM_CrunchBox(visible.GetCount(), "Octree_Box_ThreadFunc",
                               [&](int i, QLM_PointBox& box) { box.Add(mesh->Vertices[visible[i]]); });
    const int vertexCount = mesh->GetVCount();
    const LeafFinder finder(build->box, octreeDepth);
    build->vertexLeaf = std::make_unique_for_overwrite<int32_t[]>(vertexCount);
    int32_t* leaf = build->vertexLeaf.get();
    if (visible.GetCount() < vertexCount) std::fill_n(leaf, vertexCount, -1);
    QLM_ThreadCrunch(visible.GetCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i) leaf[visible[i]] = finder.Find(mesh->Vertices[visible[i]]);
    }, "Octree_Leaves_ThreadFunc");
}

namespace {
/// A polygon's distinct leaves, with which corner comes first.
class CornerLeaves {
  public:
    /// Reads the leaves of all corners; true when they differ.
    bool Read(const QLM_PolygonView& view, int p, const int32_t* leafOf) {
        const int count = view.polygons[p].count;
        best = -1;
        bool differ = false;
        for (int i = 0; i < count; ++i) {
            const int v = view.GetVertex(p, i);
            leaves[i] = leafOf[v];
            differ = differ || leaves[i] != leaves[0];
            if (leaves[i] < 0) continue;
            if (best < 0 || leaves[i] < leafOf[best] || (leaves[i] == leafOf[best] && v < best)) best = v;
        }
        end = leaves + count;
        return differ;
    }
    /// Leaves are gone through in tree order and their vertices upwards, so the smallest pair takes the polygon; -1
    /// when all corners are hidden.
    int GetFirstVertex() const { return best; }
    template <class Visit> void VisitDistinct(Visit visit) {
        std::sort(leaves, end);
        end = std::unique(leaves, end);
        for (const int32_t* leaf = leaves; leaf < end; ++leaf)
            if (*leaf >= 0) visit(*leaf);
    }

  private:
    int best = -1;
    int32_t leaves[QLM_MaximumCorners];
    int32_t* end = leaves;
};
} // namespace

void QLM_OctreeMeshContainer::FindPolygonVertices() {
    const QLM_PolygonView view = mesh->GetPolygonView();
    const int32_t* leaf = build->vertexLeaf.get();
    const bool hasUVs = mesh->GetVTCount() > 0;
    build->polygonVertex = std::make_unique_for_overwrite<int32_t[]>(mesh->GetPCount());
    QLM_ThreadCrunch(mesh->GetPCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        std::vector<Build::Straddler> straddlers;
        std::vector<Build::UVRange> uvRanges(hasUVs ? size_t{1} << (3 * octreeDepth) : 0);
        CornerLeaves corners;
        for (int p = range.start; p < range.end; ++p) {
            // Hidden polygons widen boxes, but stand in no leaf.
            if (corners.Read(view, p, leaf))
                corners.VisitDistinct([&](int32_t own) { straddlers.push_back({own, p}); });
            const int v = mesh->HasPolygonFlag(p, ePFlag_Hidden) ? -1 : corners.GetFirstVertex();
            build->polygonVertex[p] = v;
            if (v < 0 || !hasUVs) continue;
            Build::UVRange& uvRange = uvRanges[leaf[v]];
            for (int i = 0; i < view.polygons[p].count; ++i) {
                const float* uv = mesh->TextureVertices[view.polygons[p].corners[i].textureVertex];
                for (int axis = 0; axis < 2; ++axis) {
                    uvRange.min[axis] = std::min(uvRange.min[axis], uv[axis]);
                    uvRange.max[axis] = std::max(uvRange.max[axis], uv[axis]);
                }
            }
        }
        build->straddlers[range.threadIndex] = std::move(straddlers);
        build->uvRanges[range.threadIndex] = std::move(uvRanges);
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

    // Give each vertex room for the polygons that come through it, in the order of the vertices.
    const int32_t* polygonVertex = build->polygonVertex.get();
    auto next = std::make_unique<int32_t[]>(mesh->GetVCount());
    for (int p = 0; p < mesh->GetPCount(); ++p)
        if (polygonVertex[p] >= 0) ++next[polygonVertex[p]];
    build->polygonStart.assign(leafCount + 1, 0);
    int32_t count = 0;
    for (int i = 0; i < leafCount; ++i) {
        build->polygonStart[i] = count;
        for (int k = build->vertexStart[i]; k < build->vertexStart[i + 1]; ++k) {
            const int32_t own = next[sorted[k]];
            next[sorted[k]] = count;
            count += own;
        }
    }
    build->polygonStart[leafCount] = count;

    // Put them there, downwards: the reverse of the order in which a leaf takes them up.
    QLM_SimpleArray<int32_t>& polygons = mesh->GetVisiblePolygons();
    polygons.Resize(count, false, false);
    for (int p = mesh->GetPCount() - 1; p >= 0; --p)
        if (polygonVertex[p] >= 0) polygons[next[polygonVertex[p]]++] = p;
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
        build->leafIndex[firstLeaf] = static_cast<int32_t>(Leaves.size());
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
    const int32_t *vertex = build->polygonVertex.get(), *leaf = build->vertexLeaf.get();
    QLM_ThreadCrunch(mesh->GetPCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int p = range.start; p < range.end; ++p)
            PolygonLeaf[p] = vertex[p] < 0 ? -1 : build->leafIndex[leaf[vertex[p]]];
    }, "Octree_PolygonLeaves_ThreadFunc");
    for (const std::vector<Build::UVRange>& ranges : build->uvRanges)
        for (size_t i = 0; i < ranges.size(); ++i) {
            if (build->leafIndex[i] < 0) continue;
            Node& node = *Leaves[build->leafIndex[i]];
            for (int axis = 0; axis < 2; ++axis) {
                node.MinUV[axis] = std::min(node.MinUV[axis], ranges[i].min[axis]);
                node.MaxUV[axis] = std::max(node.MaxUV[axis], ranges[i].max[axis]);
            }
        }
}

void QLM_OctreeMeshContainer::FindOuterVertices() {
    // The boxes hold all polygons of a leaf's vertices. Sort those that reach into other leaves by leaf.
    const int leafCount = static_cast<int>(Leaves.size());
    std::vector<int32_t> start(leafCount + 1);
    for (const auto& part : build->straddlers)
        for (const Build::Straddler& s : part) ++start[build->leafIndex[s.leaf] + 1];
    for (int i = 0; i < leafCount; ++i) start[i + 1] += start[i];
    std::vector<int32_t> polygons(start[leafCount]), next(start.begin(), start.end() - 1);
    for (const auto& part : build->straddlers)
        for (const Build::Straddler& s : part) polygons[next[build->leafIndex[s.leaf]]++] = s.polygon;

    // List their corners beyond the leaf, each once.
    const QLM_PolygonView view = mesh->GetPolygonView();
    const int32_t* leafOf = build->vertexLeaf.get();
    const QLM_SimpleArray<int32_t>& vertices = mesh->GetVisibleVertices();
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
            for (int k = start[i]; k < start[i + 1]; ++k)
                for (int c = 0; c < view.polygons[polygons[k]].count; ++c) {
                    const int v = view.GetVertex(polygons[k], c);
                    if (leafOf[v] == own || lastLeaf[v] == i + 1) continue;
                    lastLeaf[v] = i + 1;
                    out.push_back(v);
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
