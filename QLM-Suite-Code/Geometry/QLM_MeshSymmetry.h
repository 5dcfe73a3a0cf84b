#pragma once
// Partners of vertices across the symmetry plane.

#include "Geometry/QLM_MeshContainer.h"

class QLM_MeshSymmetryContainer : public QLM_MeshContainerMesh {};
