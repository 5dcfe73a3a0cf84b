#include "Geometry/QLM_MeshTransform.h"

#include "Geometry/QLM_Mesh.h"
#include "Math/QLM_Matrix.h"

QLM_TransformMeshContainer::QLM_TransformMeshContainer() {
    MatrixIdentity(Transform_RotationMatrix);
    MatrixIdentity(world);
    MatrixIdentity(inverseWorld);
}

void QLM_TransformMeshContainer::RecomputeWorldMatrix() {
    float toCentre[16], scale[16], fromCentre[16], a[16], b[16];
    MatrixIdentity(toCentre);
    MatrixIdentity(scale);
    MatrixIdentity(fromCentre);
    for (int k = 0; k < 3; ++k) {
        const float centre = 0.5f * mesh->BoundsMin[k] + 0.5f * mesh->BoundsMax[k];
        toCentre[12 + k] = -centre;
        scale[5 * k] = Transform_Scale[k];
        fromCentre[12 + k] = centre;
    }
    MatrixMultiply(toCentre, scale, a);
    MatrixMultiply(a, Transform_RotationMatrix, b);
    MatrixMultiply(b, fromCentre, world);
    for (int k = 0; k < 3; ++k) world[12 + k] += Transform_Pos[k];
    if (!MatrixInvertAffine(world, inverseWorld)) MatrixIdentity(inverseWorld);
}

bool QLM_TransformMeshContainer::IsIdentity() const {
    float identity[16];
    MatrixIdentity(identity);
    return std::equal(world, world + 16, identity);
}
