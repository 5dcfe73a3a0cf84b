#include "Rendering/QLM_RenderState.h"

void QLM_Camera::Update() {
    // The columns of the rotation are the screen's axes and the direction to the viewer, in world.
    const double scale[3] = {1.0 / (static_cast<double>(halfHeight) * aspect), 1.0 / halfHeight, -1.0 / depthRange};
    const double unscale[3] = {static_cast<double>(halfHeight) * aspect, halfHeight, -static_cast<double>(depthRange)};
    for (int column = 0; column < 3; ++column) {
        double origin = 0;
        for (int row = 0; row < 3; ++row) {
            const double axis = rotation[row * 4 + column];
            worldToClip[row * 4 + column] = static_cast<float>(axis * scale[column]);
            clipToWorld[column * 4 + row] = static_cast<float>(axis * unscale[column]);
            origin += axis * lookAt[row];
        }
        worldToClip[12 + column] = static_cast<float>(-origin * scale[column]);
        clipToWorld[12 + column] = lookAt[column];
        worldToClip[column * 4 + 3] = clipToWorld[column * 4 + 3] = 0.0f;
        viewDirection[column] = rotation[column * 4 + 2];
    }
    worldToClip[15] = clipToWorld[15] = 1.0f;
}
