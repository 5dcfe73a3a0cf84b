#pragma once
// The arithmetic of a single normal. Private to this room.

#include "Geometry/QLM_Polygon.h"

#include <cmath>
#include <limits>

/// Scales to unit length; what has no usable length becomes zero.
inline void QLM_ScaleToUnit(float* n) {
    const float squared = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
    const float scale = 1.0f / std::sqrt(squared);
    const bool usable = squared > 0.0f && scale > 0.0f && scale < std::numeric_limits<float>::infinity();
    for (int k = 0; k < 3; ++k) n[k] = usable ? n[k] * scale : 0.0f;
}

/// Adds (c - b) x (a - b).
inline void QLM_AddCross(const float* a, const float* b, const float* c, float* out) {
    const float u[3] = {c[0] - b[0], c[1] - b[1], c[2] - b[2]};
    const float v[3] = {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    out[0] += u[1] * v[2] - u[2] * v[1];
    out[1] += u[2] * v[0] - u[0] * v[2];
    out[2] += u[0] * v[1] - u[1] * v[0];
}

/// Sum of the cross products of a fan around the first corner, as a unit vector; zero below three corners.
inline void QLM_PolygonNormal(const QLM_PolygonView& view, const float* positions, int p, float* out) {
    const int count = view.polygons[p].count;
    float sum[3] = {0.0f, 0.0f, 0.0f};
    const auto position = [&](int i) { return positions + 3 * static_cast<int64_t>(view.GetVertex(p, i)); };
    if (count == 4) { // by far the most
        const float *a = position(0), *b = position(1), *c = position(2), *d = position(3);
        QLM_AddCross(a, b, c, sum);
        QLM_AddCross(a, c, d, sum);
    } else if (count > 2) {
        const float *first = position(0), *previous = position(1);
        for (int j = 2; j < count; ++j) {
            const float* corner = position(j);
            QLM_AddCross(first, previous, corner, sum);
            previous = corner;
        }
    }
    QLM_ScaleToUnit(sum);
    for (int k = 0; k < 3; ++k) out[k] = sum[k];
}

/// Unweighted sum of the normals of a row of polygons, as a unit vector; zero for an empty row.
inline void QLM_VertexNormal(const int32_t* row, const float* polygonNormals, float* out) {
    float sum[3] = {0.0f, 0.0f, 0.0f};
    for (int k = 1; k <= row[0]; ++k) {
        const float* n = polygonNormals + 3 * static_cast<int64_t>(row[k]);
        for (int c = 0; c < 3; ++c) sum[c] += n[c];
    }
    QLM_ScaleToUnit(sum);
    for (int c = 0; c < 3; ++c) out[c] = sum[c];
}
