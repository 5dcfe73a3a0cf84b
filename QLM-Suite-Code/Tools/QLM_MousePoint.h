#pragma once
/// One sample of a stroke, in normalised viewport coordinates.
struct QLM_MousePoint {
    float x = 0, y = 0, pressure = 1.0f;
    unsigned char flag = 0;
    int index = 0;
};
