#include "Geometry/QLM_MeshHotSelection.h"

// Nothing is kept while nothing is selected.

void QLM_MeshHotSelectionContainer::OnSetVertexCount(int, int newCount) {
    if (HasSelection()) VertexWeights.Resize(newCount, true, true);
}

void QLM_MeshHotSelectionContainer::OnSetPolygonCount(int, int newCount) {
    if (PolygonWeights.GetCount()) PolygonWeights.Resize(newCount, true, true);
}
