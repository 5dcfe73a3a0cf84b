#pragma once
// How the states of the display groups become flags of polygons and vertices.

#include <vector>

class QLM_DisplayGroup;
class QLM_Mesh;

// A polygon has the background's state unless one of its other groups differs from the background: a locked group locks
// its polygons below a free background, a free one frees them below a locked background. Hidden likewise. "Hidden
// Layer" has no part in locking, nor "Locked Layer" in hiding. Main thread, no render and no stroke running.

/// Rewrites ePFlag_Locked, eVFlag_Locked and eVFlag_RigidEdge. A vertex between locked and free polygons is locked only
/// at the edge of a group with rigid edges. Notes with the object whether it has no free polygon.
void QLM_UpdateLockedFlags(QLM_Mesh& mesh, const std::vector<QLM_DisplayGroup*>& groups);
/// Rewrites ePFlag_Hidden, and eVFlag_Hidden with the visible lists if a polygon changed. True then.
bool QLM_UpdateHiddenFlags(QLM_Mesh& mesh, const std::vector<QLM_DisplayGroup*>& groups);
