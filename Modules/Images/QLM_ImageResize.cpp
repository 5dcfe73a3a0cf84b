#include "Core/Logging/QLM_Logger.h"
#include "Images/QLM_ForRows.h"
#include "Images/QLM_ImageLoader.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

/// Where a destination column or row reads: two neighbours and the way between them.
struct Tap {
    size_t low, high;
    float fraction;
};

std::vector<Tap> MakeTaps(uint32_t dstSize, uint32_t srcSize) {
    std::vector<Tap> taps(dstSize);
    for (uint32_t i = 0; i < dstSize; i++) {
        const float position = std::clamp(float(i) / float(dstSize) * float(srcSize), 0.0f, float(srcSize - 1));
        const size_t low = std::min(size_t(position), size_t(srcSize) - 1);
        taps[i] = {low, std::min(low + 1, size_t(srcSize) - 1), position - float(low)};
    }
    return taps;
}

/// Nested mixes keep four equal bytes what they are; a weighted sum of four would come out one below.
inline float Mix(float a, float b, float t) { return a + (b - a) * t; }

template <int depth>
void ResizeBilinear(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH) {
    const std::vector<Tap> columns = MakeTaps(dstW, srcW), rows = MakeTaps(dstH, srcH);
    const size_t srcRow = size_t(srcW) * depth;
    QLM_ForRows(dstW, dstH, [&](uint32_t first, uint32_t end) {
        for (uint32_t y = first; y < end; y++) {
            const uint8_t *low = src + rows[y].low * srcRow, *high = src + rows[y].high * srcRow;
            uint8_t* out = dst + size_t(y) * dstW * depth;
            for (const Tap& column : columns) {
                const uint8_t *a = low + column.low * depth, *b = low + column.high * depth;
                const uint8_t *c = high + column.low * depth, *d = high + column.high * depth;
                for (int i = 0; i < depth; i++)
                    *out++ = uint8_t(
                        Mix(Mix(a[i], b[i], column.fraction), Mix(c[i], d[i], column.fraction), rows[y].fraction));
            }
        }
    });
}

/// Copies whole pixels from the columns and rows given by `sourceOf(index, dst size, src size)`.
template <int depth, class SourceOf>
void ResizeNearest(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH,
                   const SourceOf& sourceOf) {
    std::vector<size_t> offsets(dstW);
    for (uint32_t x = 0; x < dstW; x++) offsets[x] = sourceOf(x, dstW, srcW) * depth;
    QLM_ForRows(dstW, dstH, [&](uint32_t first, uint32_t end) {
        for (uint32_t y = first; y < end; y++) {
            const uint8_t* row = src + sourceOf(y, dstH, srcH) * srcW * depth;
            uint8_t* out = dst + size_t(y) * dstW * depth;
            for (const size_t offset : offsets) {
                memcpy(out, row + offset, depth);
                out += depth;
            }
        }
    });
}

size_t IntegerSource(uint32_t i, uint32_t dstSize, uint32_t srcSize) { return size_t(uint64_t(i) * srcSize / dstSize); }
size_t FloatSource(uint32_t i, uint32_t dstSize, uint32_t srcSize) {
    return std::min(size_t(float(i) / float(dstSize) * float(srcSize)), size_t(srcSize) - 1);
}

/// Calls `resize` with the depth as a constant; logs and answers false for a depth that no map has.
template <class Resize> bool ForDepth(int depth, const char* function, const Resize& resize) {
    switch (depth) {
    case 1:
        resize(std::integral_constant<int, 1>());
        return true;
    case 3:
        resize(std::integral_constant<int, 3>());
        return true;
    case 4:
        resize(std::integral_constant<int, 4>());
        return true;
    default:
        QLM_Log("The color depth %d is not supported by %s()", depth, function);
        return false;
    }
}

} // namespace

bool ResizeImage(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH,
                 int depth) {
    return ForDepth(depth, "ResizeImage", [&](auto d) {
        if (srcW > 0 && srcH > 0) ResizeBilinear<d()>(dst, dstW, dstH, src, srcW, srcH);
    });
}

bool ResizeImageClosest(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH,
                        int depth) {
    return ForDepth(depth, "ResizeImageClosest", [&](auto d) {
        if (srcW > 0 && srcH > 0) ResizeNearest<d()>(dst, dstW, dstH, src, srcW, srcH, IntegerSource);
    });
}

bool ResizeImageClosestF(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH,
                         int depth) {
    return ForDepth(depth, "ResizeImageClosestF", [&](auto d) {
        if (srcW > 0 && srcH > 0) ResizeNearest<d()>(dst, dstW, dstH, src, srcW, srcH, FloatSource);
    });
}
