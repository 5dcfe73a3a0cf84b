#pragma once
// Compositing a stack of layers into a map. Private to this room.

#include <cstdint>
#include <vector>

/// One visible layer of the stack; planes have the composite's size.
struct QLM_ResolveLayer {
    const uint8_t* pixels; ///< RGB
    const uint8_t* mask;
    uint8_t opacity;
    int32_t blendType;
};

/// A rectangle of pixels, ends not included.
struct QLM_ResolveRun {
    uint32_t x0, y0, x1, y1;
};

struct QLM_ResolveTarget {
    uint8_t* pixels; ///< RGB
    uint8_t* mask;
    uint32_t width, height;
    const uint8_t* checker; ///< two RGB colours, the first for even cells of 4 x 4 pixels; null leaves it out
};

/// Rebuilds the runs, which don't overlap, from the layers (bottom to top): each is cleared, blended and finished by
/// one worker, the runs dealt out in turn, so the number of threads shows in no byte. Main thread.
void QLM_ResolveRuns(const QLM_ResolveTarget& target, const std::vector<QLM_ResolveLayer>& layers,
                     const std::vector<QLM_ResolveRun>& runs);
