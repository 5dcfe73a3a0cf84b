#include "Math/QLM_Matrix.h"

#include <utility>

void MatrixIdentity(float* m) {
    for (int i = 0; i < 16; ++i) m[i] = i % 5 == 0 ? 1.0f : 0.0f;
}

void MatrixMultiply(const float* a, const float* b, float* out) {
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) {
            float sum = 0.0f;
            for (int k = 0; k < 4; ++k) sum += a[row * 4 + k] * b[k * 4 + column];
            out[row * 4 + column] = sum;
        }
}

void MatrixTranslate(float* m, float x, float y, float z) {
    for (int column = 0; column < 4; ++column) m[12 + column] += x * m[column] + y * m[4 + column] + z * m[8 + column];
}

bool MatrixIsIdentity(const float* m, float tolerance) {
    for (int i = 0; i < 16; ++i)
        if (!(std::fabs(m[i] - (i % 5 == 0 ? 1.0f : 0.0f)) <= tolerance)) return false; // a NaN is no identity
    return true;
}

void MatrixCopyTranspose(float* m) {
    for (int row = 0; row < 4; ++row)
        for (int column = row + 1; column < 4; ++column) std::swap(m[row * 4 + column], m[column * 4 + row]);
}

bool MatrixInvertAffine(const float* m, float* out) {
    double a[3][3], inverse[3][3];
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column) a[row][column] = m[row * 4 + column];

    // Invert the upper 3 x 3 by cofactors; the cyclic indices carry the signs.
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column) {
            const int r1 = (column + 1) % 3, r2 = (column + 2) % 3, c1 = (row + 1) % 3, c2 = (row + 2) % 3;
            inverse[row][column] = a[r1][c1] * a[r2][c2] - a[r1][c2] * a[r2][c1];
        }
    const double determinant = a[0][0] * inverse[0][0] + a[0][1] * inverse[1][0] + a[0][2] * inverse[2][0];
    if (determinant == 0.0 || !std::isfinite(1.0 / determinant)) return false;

    // The translation goes back through the inverse.
    const double translation[3] = {m[12], m[13], m[14]};
    for (int column = 0; column < 3; ++column) {
        double moved = 0.0;
        for (int row = 0; row < 3; ++row) {
            inverse[row][column] /= determinant;
            out[row * 4 + column] = static_cast<float>(inverse[row][column]);
            moved += translation[row] * inverse[row][column];
        }
        out[12 + column] = static_cast<float>(-moved);
    }
    out[3] = out[7] = out[11] = 0.0f;
    out[15] = 1.0f;
    return true;
}

void MatrixRotation(float* m, int axis, float radians) {
    const float c = static_cast<float>(std::cos(static_cast<double>(radians)));
    const float s = static_cast<float>(std::sin(static_cast<double>(radians)));
    const int first = (axis + 1) % 3, second = (axis + 2) % 3;
    MatrixIdentity(m);
    m[first * 4 + first] = c;
    m[first * 4 + second] = s;
    m[second * 4 + first] = -s;
    m[second * 4 + second] = c;
}

void QuaternionFromAxis(const float* axis, float radians, float* out) {
    const double half = 0.5 * static_cast<double>(radians);
    for (int i = 0; i < 3; ++i) out[i] = static_cast<float>(axis[i] * std::sin(half));
    out[3] = static_cast<float>(std::cos(half));
}

void Normalize(float* v) {
    const float length = std::sqrt(Dot(v, v));
    if (!(length > 0.0f)) return;
    for (int i = 0; i < 3; ++i) v[i] /= length;
}
