#pragma once
// The vertex arrays of one mesh for OpenGL.

#include <cstddef>
#include <cstdint>
#include <vector>

class QLM_Mesh;

/// Triangles over the mesh's visible polygons, by material and leaf. Built on the main thread; holds no pointer into
/// the mesh and no name of OpenGL.
class QLM_MeshArrays {
  public:
    /// One for each pair of vertex and texture vertex; where it isn't `smooth`, one for each corner, with the polygon's
    /// normal.
    struct Vertex {
        float uv[2], normal[3], position[3];
    };
    /// A run of indices; the runs of a material stand one behind another, in leaf order.
    struct Batch {
        int material = 0; ///< the mesh's material count for polygons without one
        int leaf = 0;
        size_t first = 0, count = 0;
    };

    QLM_MeshArrays(QLM_Mesh& mesh, bool smooth);

    std::vector<Vertex> vertices;
    std::vector<uint32_t> indices;
    std::vector<Batch> batches;
};
