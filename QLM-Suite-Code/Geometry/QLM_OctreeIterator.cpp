#include "Geometry/QLM_OctreeIterator.h"

#include "Geometry/QLM_Mesh.h"

#include <cmath>

namespace {
constexpr float viewMargin = 1.1920929e-7f, brushMargin = 0.01f;
/// What rounding may do to the box of a node against those of its leaves.
constexpr float roundingOfNodes = 1e-5f;
} // namespace

bool QLM_OctreeCull::Passes(const QLM_OctreeNode<int32_t>& node) const {
    if (Meets(node.BoundsMin, node.BoundsMax, node.IsLeaf())) return true;
    if (!Symmetric || SymmetryAxis > 2) return false;
    float minimum[3], maximum[3];
    std::copy_n(node.BoundsMin, 3, minimum);
    std::copy_n(node.BoundsMax, 3, maximum);
    minimum[SymmetryAxis] = 2.0f * SymmetryOffset - node.BoundsMax[SymmetryAxis];
    maximum[SymmetryAxis] = 2.0f * SymmetryOffset - node.BoundsMin[SymmetryAxis];
    return Meets(minimum, maximum, node.IsLeaf());
}

bool QLM_OctreeCull::Meets(const float* minimum, const float* maximum, bool leaf) const {
    if (ByView) {
        const float view[4] = {-1.0f - viewMargin, -1.0f - viewMargin, 1.0f + viewMargin, 1.0f + viewMargin};
        if (!MeetsOnScreen(minimum, maximum, view, leaf)) return false;
    }
    if (ByRectangle) {
        const float brush[4] = {Rectangle[0] - brushMargin, Rectangle[1] - brushMargin, Rectangle[2] + brushMargin,
                                Rectangle[3] + brushMargin};
        if (!MeetsOnScreen(minimum, maximum, brush, leaf)) return false;
    }
    if (!BySphere) return true;
    float squared = 0.0f, size = 0.0f;
    for (int k = 0; k < 3; ++k) {
        const float d = SphereCentre[k] - std::clamp(SphereCentre[k], minimum[k], maximum[k]);
        squared += d * d;
        size += std::fabs(minimum[k]) + std::fabs(maximum[k]);
    }
    const float radius = SphereRadius + (leaf ? 0.0f : roundingOfNodes * (SphereRadius + size));
    return squared <= radius * radius;
}

bool QLM_OctreeCull::MeetsOnScreen(const float* minimum, const float* maximum, const float* rectangle,
                                   bool leaf) const {
    for (int axis = 0; axis < 2; ++axis) {
        // The picture of a box is as wide as its extents, each turned to the screen's axis, added up.
        float centre = ModelToClip[12 + axis], extent = 0.0f;
        for (int k = 0; k < 3; ++k) {
            const float m = ModelToClip[4 * k + axis];
            centre += m * (minimum[k] + maximum[k]) * 0.5f;
            extent += std::fabs(m) * (maximum[k] - minimum[k]) * 0.5f;
        }
        if (!leaf) extent += roundingOfNodes * (1.0f + extent + std::fabs(centre));
        if (centre + extent < rectangle[axis] || centre - extent > rectangle[axis + 2]) return false;
    }
    return true;
}

QLM_OctreeIterator::QLM_OctreeIterator(QLM_Mesh& mesh, Element elementIn, const QLM_OctreeCull& cull)
    : element(elementIn) {
    Collect(mesh.GetRoot(), cull);
    list = element == Element::Vertices ? mesh.GetVisibleVertices().GetData() : mesh.GetVisiblePolygons().GetData();
}

void QLM_OctreeIterator::Collect(QLM_OctreeNode<int32_t>* node, const QLM_OctreeCull& cull) {
    const bool empty = node->FirstVertex == node->EndVertex && node->FirstPolygon == node->EndPolygon;
    if (empty || !cull.Passes(*node)) return;
    if (node->IsLeaf()) leaves.push_back(node);
    else
        for (auto& child : node->Children)
            if (child) Collect(child.get(), cull);
}

int QLM_OctreeIterator::Begin() {
    nextLeaf = 0;
    at = end = 0;
    return Get();
}

int QLM_OctreeIterator::Next() {
    if (at < end) ++at;
    return Get();
}

int QLM_OctreeIterator::Get() {
    while (at == end) {
        if (nextLeaf == leaves.size()) return -1;
        const QLM_OctreeNode<int32_t>& leaf = *leaves[nextLeaf++];
        at = element == Element::Vertices ? leaf.FirstVertex : leaf.FirstPolygon;
        end = element == Element::Vertices ? leaf.EndVertex : leaf.EndPolygon;
    }
    return list[at];
}
