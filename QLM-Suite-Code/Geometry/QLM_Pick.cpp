#include "Geometry/QLM_Pick.h"

#include "Geometry/QLM_Mesh.h"
#include "Math/QLM_Matrix.h"

#include <cmath>

namespace {
using Node = QLM_OctreeMeshContainer::Node;
constexpr float nearInPixels = 4.0f, nearPartOfEdge = 0.2f;

/// Carries one ray through one mesh. Corners are sheared so that the ray becomes the z axis; as that depends on the
/// vertex alone, neighbours agree on which side of their edge the ray passes. (Woop, Benthin, Wald: Watertight
/// Ray/Triangle Intersection, 2013.)
class RayCaster {
  public:
    RayCaster(QLM_Mesh& mesh, const QLM_Ray& rayIn, bool bothSidesIn, QLM_RayHit& hitIn)
        : ray(rayIn), bothSides(bothSidesIn), hit(hitIn), view(mesh.GetPolygonView()),
          positions(mesh.ResolvedVertices.GetData()), visible(mesh.GetVisiblePolygons().GetData()) {
        const double* d = ray.direction;
        kz = std::fabs(d[0]) > std::fabs(d[1]) ? 0 : 1;
        if (std::fabs(d[2]) > std::fabs(d[kz])) kz = 2;
        kx = (kz + 1) % 3;
        ky = (kz + 2) % 3;
        if (d[kz] < 0.0) std::swap(kx, ky); // keeps the sense of turning
        shearX = d[kx] / d[kz];
        shearY = d[ky] / d[kz];
        scaleZ = 1.0 / d[kz];
    }

    void Visit(const Node& node) {
        if (node.IsLeaf()) {
            for (int i = node.FirstPolygon; i < node.EndPolygon; ++i) Meet(visible[i]);
            return;
        }
        // Go through the children in the order in which the ray enters them.
        std::pair<double, const Node*> order[8];
        int count = 0;
        for (const auto& child : node.Children) {
            double entry;
            if (!child || child->FirstPolygon == child->EndPolygon || !Enters(*child, entry)) continue;
            int i = count++;
            for (; i > 0 && order[i - 1].first > entry; --i) order[i] = order[i - 1];
            order[i] = {entry, child.get()};
        }
        for (int i = 0; i < count; ++i)
            if (!(order[i].first > hit.t)) Visit(*order[i].second);
    }

    bool Enters(const Node& node, double& entry) const {
        double low = ray.start, high = hit.t;
        for (int k = 0; k < 3; ++k) {
            // Flat boxes are usual; rounding must not slip past them.
            const double margin = 1e-7 * std::max(std::fabs(node.BoundsMin[k]), std::fabs(node.BoundsMax[k]));
            const double minimum = node.BoundsMin[k] - margin - ray.origin[k];
            const double maximum = node.BoundsMax[k] + margin - ray.origin[k];
            if (ray.direction[k] == 0.0) {
                if (minimum > 0.0 || maximum < 0.0) return false;
                continue;
            }
            const double a = minimum / ray.direction[k], b = maximum / ray.direction[k];
            low = std::max(low, std::min(a, b));
            high = std::min(high, std::max(a, b));
        }
        entry = low;
        return low <= high;
    }

  private:
    struct Corner { double x, y, z; };

    void Meet(int p) {
        const int count = view.polygons[p].count;
        if (count < 3) return;
        // Most polygons lie wholly to one side of the ray.
        bool left = true, right = true, below = true, above = true;
        for (int i = 0; i < count; ++i) {
            const float* position = positions + 3 * static_cast<int64_t>(view.GetVertex(p, i));
            Corner& corner = corners[i];
            const double z = position[kz] - ray.origin[kz];
            corner.x = position[kx] - ray.origin[kx] - shearX * z;
            corner.y = position[ky] - ray.origin[ky] - shearY * z;
            corner.z = scaleZ * z;
            left = left && corner.x < 0.0;
            right = right && corner.x > 0.0;
            below = below && corner.y < 0.0;
            above = above && corner.y > 0.0;
        }
        if (left || right || below || above) return;
        for (int i = 2; i < count; ++i) MeetTriangle(p, corners[0], corners[i - 1], corners[i]);
    }

    void MeetTriangle(int p, const Corner& a, const Corner& b, const Corner& c) {
        const double u = c.x * b.y - c.y * b.x, v = a.x * c.y - a.y * c.x, w = b.x * a.y - b.y * a.x;
        const bool front = u >= 0.0 && v >= 0.0 && w >= 0.0, back = u <= 0.0 && v <= 0.0 && w <= 0.0;
        if (!front && !(back && bothSides)) return;
        const double area = u + v + w;
        if (area == 0.0) return;
        const double t = (u * a.z + v * b.z + w * c.z) / area;
        if (!(t >= ray.start) || t > hit.t || (t == hit.t && (!own || p > hit.polygon))) return;
        hit.polygon = p;
        hit.t = t;
        own = true;
    }

    const QLM_Ray& ray;
    const bool bothSides;
    QLM_RayHit& hit;
    bool own = false; ///< the hit is on this mesh
    const QLM_PolygonView view;
    const float* positions;
    const int32_t* visible;
    int kx, ky, kz;
    double shearX, shearY, scaleZ;
    Corner corners[QLM_MaximumCorners];
};

/// Distance of a point from a segment, all in pixels.
float DistanceToSegment(const float* a, const float* b, const float* p) {
    const float ab[2] = {b[0] - a[0], b[1] - a[1]}, ap[2] = {p[0] - a[0], p[1] - a[1]};
    const float squared = ab[0] * ab[0] + ab[1] * ab[1];
    const float s = squared > 0.0f ? std::clamp((ap[0] * ab[0] + ap[1] * ab[1]) / squared, 0.0f, 1.0f) : 0.0f;
    return std::hypot(ap[0] - s * ab[0], ap[1] - s * ab[1]);
}
} // namespace

bool QLM_PickPolygon(QLM_Mesh& mesh, const QLM_Ray& ray, bool bothSides, QLM_RayHit& hit) {
    const double* d = ray.direction;
    if (d[0] == 0.0 && d[1] == 0.0 && d[2] == 0.0) return false;
    const Node& root = *mesh.GetRoot();
    if (root.FirstPolygon == root.EndPolygon) return false;
    const double before = hit.t;
    RayCaster caster(mesh, ray, bothSides, hit);
    double entry;
    if (caster.Enters(root, entry)) caster.Visit(root);
    return hit.t < before;
}

QLM_ClosestElement QLM_FindClosestVertexOrEdge(const QLM_Mesh& mesh, int polygon, const QLM_PixelView& view, float x,
                                               float y, bool useVertex, bool useEdge) {
    QLM_ClosestElement closest;
    if (polygon < 0 || polygon >= mesh.GetPCount()) return closest;

    // Find the corners on the screen.
    const int count = mesh.GetPolygonVertexCount(polygon);
    std::vector<float> screen(2 * static_cast<size_t>(count)), pixels(screen.size());
    std::vector<char> usable(count);
    const auto toPixels = [&](const float* from, float* to) {
        to[0] = (from[0] + 1.0f) * 0.5f * view.width;
        to[1] = (from[1] + 1.0f) * 0.5f * view.height;
    };
    const float place[2] = {x, y};
    float click[2];
    toPixels(place, click);
    for (int i = 0; i < count; ++i) {
        const int v = mesh.GetPolygonVertex(polygon, i);
        usable[i] = !mesh.HasVertexFlag(v, eVFlag_Hidden | eVFlag_Locked);
        float clip[3];
        MatrixTransformPoint(view.modelToClip, mesh.ResolvedVertices[v], clip);
        std::copy_n(clip, 2, &screen[2 * i]);
        toPixels(clip, &pixels[2 * i]);
    }

    // Take the nearest corner and the nearest edge.
    float vertexDistance = std::numeric_limits<float>::infinity(), edgeDistance = vertexDistance, edgeLength = 0.0f;
    int corner = -1, edge = -1;
    for (int i = 0; i < count; ++i) {
        if (!usable[i]) continue;
        const float* a = &pixels[2 * i];
        const float distance = std::hypot(a[0] - click[0], a[1] - click[1]);
        if (distance < vertexDistance) {
            vertexDistance = distance;
            corner = i;
        }
        const int next = i + 1 < count ? i + 1 : 0;
        if (!usable[next] || next == i) continue;
        const float* b = &pixels[2 * next];
        const float toEdge = DistanceToSegment(a, b, click);
        if (toEdge >= edgeDistance) continue;
        edgeDistance = toEdge;
        edgeLength = std::hypot(b[0] - a[0], b[1] - a[1]);
        edge = i;
    }

    // A corner in reach wins.
    if (useVertex && corner >= 0 && vertexDistance < std::max(nearPartOfEdge * edgeLength, nearInPixels)) {
        closest.vertex = mesh.GetPolygonVertex(polygon, corner);
        std::copy_n(&screen[2 * corner], 2, closest.pointA);
        std::copy_n(&screen[2 * corner], 2, closest.pointB);
    } else if (useEdge && edge >= 0) {
        closest.edge = edge;
        std::copy_n(&screen[2 * edge], 2, closest.pointA);
        std::copy_n(&screen[2 * ((edge + 1) % count)], 2, closest.pointB);
    }
    return closest;
}
