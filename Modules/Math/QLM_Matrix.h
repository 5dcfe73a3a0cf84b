#pragma once
// 4 x 4 matrices of sixteen floats, rows in memory, row vector times matrix, translation in entries 12 to 14.

#include <cmath>

void MatrixIdentity(float* m);
/// out = a x b; `out` is neither a nor b.
void MatrixMultiply(const float* a, const float* b, float* out);
/// m = T(x, y, z) x m.
void MatrixTranslate(float* m, float x, float y, float z);
bool MatrixIsIdentity(const float* m, float tolerance);
void MatrixCopyTranspose(float* m);
/// Inverse of an affine matrix; false when it has none.
bool MatrixInvertAffine(const float* m, float* out);
/// out = (p, 1) x m without division.
inline void MatrixTransformPoint(const float* m, const float* p, float* out) {
    const float x = p[0], y = p[1], z = p[2];
    for (int i = 0; i < 3; ++i) out[i] = x * m[i] + y * m[4 + i] + z * m[8 + i] + m[12 + i];
}
/// Rotation by `radians` about an axis through the origin, right-handed.
void MatrixRotation(float* m, int axis, float radians);
/// Unit quaternion (x, y, z, w) of a turn by `radians` about a unit axis.
void QuaternionFromAxis(const float* axis, float radians, float* out);
void Normalize(float* v); ///< zero stays zero
inline float Dot(const float* a, const float* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
inline void Cross(const float* a, const float* b, float* out) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}
