#pragma once
// Points turned by a matrix over the cruncher.

#include <cstdint>

/// Moves `count` points of three floats in place by a 4x4 matrix (row vector times matrix). Not from inside a crunch.
void QLM_MultByMatrix(float* points, int64_t count, const float* matrix);
/// The same for the points that `indices` names; an index stands in the array once only.
void QLM_MultByMatrixIndexed(float* points, const int32_t* indices, int64_t indexCount, const float* matrix);
