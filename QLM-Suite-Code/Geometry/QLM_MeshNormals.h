#pragma once
// The arithmetic of a single normal. Private to this room.

#include "Geometry/QLM_Polygon.h"

#include <cmath>

/// Scales to unit length; what has no usable length becomes zero.
inline void QLM_ScaleToUnit(float* n) {
    const float squared = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
    const float scale = squared > 0.0f && std::isfinite(squared) ? 1.0f / std::sqrt(squared) : 0.0f;
    for (int k = 0; k < 3; ++k) n[k] = scale > 0.0f ? n[k] * scale : 0.0f;
}

/// Sum of the cross products of a fan around the first corner, as a unit vector; zero below three corners.
inline void QLM_PolygonNormal(const QLM_PolygonView& view, const float* positions, int p, float* out) {
    out[0] = out[1] = out[2] = 0.0f;
    const int count = view.polygons[p].count;
    if (count < 3) return;
    const auto position = [&](int i) { return positions + 3 * static_cast<int64_t>(view.GetVertex(p, i)); };
    const float* first = position(0);
    const float* previous = position(1);
    for (int j = 2; j < count; ++j) {
        const float* corner = position(j);
        const float a[3] = {corner[0] - previous[0], corner[1] - previous[1], corner[2] - previous[2]};
        const float b[3] = {first[0] - previous[0], first[1] - previous[1], first[2] - previous[2]};
        out[0] += a[1] * b[2] - a[2] * b[1];
        out[1] += a[2] * b[0] - a[0] * b[2];
        out[2] += a[0] * b[1] - a[1] * b[0];
        previous = corner;
    }
    QLM_ScaleToUnit(out);
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
