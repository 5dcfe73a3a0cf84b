#pragma once
// What lies under a ray, and which vertex or edge of it is meant.

#include <limits>

class QLM_Mesh;

/// Points origin + t x direction for t from `start` on, in the space of the resolved vertices. The direction needs no
/// unit length; t counts in its lengths.
struct QLM_Ray {
    double origin[3] = {}, direction[3] = {};
    double start = 0.0;
};

struct QLM_RayHit {
    int polygon = -1;
    double t = std::numeric_limits<double>::infinity();
};

/// Finds the nearest polygon that isn't hidden, as a fan of triangles around its first corner; the lowest number among
/// equals. Back faces count only with `bothSides`. A ray through an edge between two front faces meets one of them.
/// Writes `hit` and returns true only for one nearer than `hit` holds already, so that several meshes share it.
/// Main thread; builds the octree on demand. A direction of zero meets nothing.
bool QLM_PickPolygon(QLM_Mesh& mesh, const QLM_Ray& ray, bool bothSides, QLM_RayHit& hit);

/// A view as this room needs it: where resolved vertices come to lie in a rectangle of pixels.
struct QLM_PixelView {
    float modelToClip[16]; ///< row vectors; x and y to -1..1
    float width = 0.0f, height = 0.0f;
};

struct QLM_ClosestElement {
    int vertex = -1;
    int edge = -1; ///< from corner `edge` to the next one
    float pointA[2] = {-2.0f, -2.0f}, pointB[2] = {-2.0f, -2.0f}; ///< ends on the screen, normalised; one for a vertex
};

/// The corner of a polygon near a normalised place, else its nearest edge; hidden and locked vertices don't count.
/// Near is below 4 pixels or, if that is more, 0.2 x the length of the nearest edge on the screen. All -1 when there is
/// neither. Any thread while the mesh stays as it is.
QLM_ClosestElement QLM_FindClosestVertexOrEdge(const QLM_Mesh& mesh, int polygon, const QLM_PixelView& view, float x,
                                               float y, bool useVertex, bool useEdge);
