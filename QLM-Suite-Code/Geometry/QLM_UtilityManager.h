#pragma once
// Names, sizes, clicks and other small services of geometry.

#include "Engine/QLM_Manager.h"

#include <string>
#include <vector>

class QLM_Mesh;
class QLM_Object;
class QLM_Viewport;

/// Main thread.
class QLM_UtilityManager : public QLM_Manager {
  public:
    QLM_UtilityManager();

    /// A name that isn't in `taken`: `base`, with "suffix" behind a blank when there is one, or "%s (%d)" of it with
    /// one more than the greatest number in use. An `extension` (without dot) stays at the end. Only the exact name
    /// takes a name. Any thread.
    static std::string GetUniqueName(const std::vector<std::string>& taken, const std::string& base,
                                     const std::string& suffix = {}, const std::string& extension = {});
    /// The name of a copy: without a trailing number in brackets, with " Copy" at its end, made unique. Any thread.
    static std::string GetCopyName(const std::vector<std::string>& taken, const std::string& name);
    /// Brings what a mesh keeps a vertex or polygon into step after its counts changed: each morph gets the vertex
    /// count (new deltas are zero), the soft selection is rebuilt.
    void EnforceMorphAndSelectionSizes(QLM_Mesh* mesh);

    /// The command's body: welds the meshes of the objects and refreshes what follows from their shapes; `fraction` of
    /// the largest side of each box. Prints the report and returns how many objects were welded.
    static int WeldVertices(const std::vector<QLM_Object*>& objects, float fraction, bool openEdgesOnly,
                            bool selectedOnly, bool acrossGroupsOnly);
    /// Takes the welds of the objects' meshes back, refreshed; how many were welded.
    static int UnweldVertices(const std::vector<QLM_Object*>& objects);
    static float GetWeldFraction(); ///< the setting as the fraction that a weld takes

    /// The surface under a normalised place of a viewport, in world space; with `snapToVertex` the vertex near the
    /// place. With `toWorld` the mesh's inverse world matrix is applied behind it, which gives object space. False
    /// without a hit, or with no vertex in reach.
    bool GetClickedOnPoint(float* point, QLM_Viewport* viewport, float x, float y, bool snapToVertex, bool toWorld);
    /// The vertex of the polygon near a normalised place, else the nearest edge (from its corner `edgeOut` on); see
    /// QLM_FindClosestVertexOrEdge. -1 for what isn't found, points (two floats, normalised) are then -2.
    void GetClosestEdgeOrVertexFromViewport(QLM_Mesh* mesh, QLM_Viewport* viewport, int polygon, float x, float y,
                                            int& vertexOut, int& edgeOut, float* pointA, float* pointB, bool useVertex,
                                            bool useEdge);

    /// The tolerance of a weld is 10 to the power of minus this, of the largest side. A setting of the process, as
    /// settings are read before there are managers.
    static inline float WeldThreshold = 4.0f;
};
