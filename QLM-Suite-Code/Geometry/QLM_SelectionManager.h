#pragma once
// Operations of the user on the soft selection, across all objects.

#include "Engine/QLM_Manager.h"

#include <vector>

class QLM_Mesh;

/// Each operation records undo, acts on the usable (neither hidden nor locked) elements of all shown objects in the
/// engine's selection mode, and redraws. Main thread.
class QLM_SelectionManager : public QLM_Manager {
  public:
    void SelectAll();
    void SelectNone(); ///< of hidden objects too
    void GrowSelection();
    void ShrinkSelection();
    /// Keeps the greatest weight; Shift held down only raises weights, Control only lowers them.
    void SoftenSelection();
    /// Moves weights to 0 or 1; Alt held down goes a part of the way.
    void HardenSelection();
    /// Divides by the greatest weight of all objects.
    void NormalizeSelection();
    void InvertSelection();
    /// Inverts polygons, whatever the mode, and derives the vertices.
    void InvertPolygonSelection();

    /// Gives elements of the current mode, which must exist, one weight; the others keep theirs.
    void SelectElements(QLM_Mesh* mesh, const std::vector<int32_t>& elements, float weight);
    /// 0 vertices, 1 polygons; the selection comes along.
    void SetSelectionMode(int mode);
};
