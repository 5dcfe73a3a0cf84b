#pragma once
// Blocks of samples on their way into a map. Private to this room.

#include "Core/OS/QLM_Memory.h"

#include <cstddef>
#include <cstdint>
#include <memory>

struct QLM_PixelBlockDeleter {
    void operator()(uint8_t* block) const { QLM_Free(block); }
};
/// A block of the checked allocator; `release` hands it to a map.
using QLM_PixelBlock = std::unique_ptr<uint8_t[], QLM_PixelBlockDeleter>;

/// A block for width x height pixels of `depth` bytes, not cleared; null for none. Raises when memory is out.
inline QLM_PixelBlock QLM_MakePixelBlock(uint32_t width, uint32_t height, uint32_t depth) {
    return QLM_PixelBlock(static_cast<uint8_t*>(QLM_Malloc(static_cast<size_t>(width) * height * depth, false)));
}

/// Depth 3 from depth 1.
QLM_PixelBlock QLM_ReplicateGrey(const uint8_t* grey, uint32_t width, uint32_t height);
/// Brightens grey samples to sqrt(v / 255) x 255 and inverts them, in place.
void QLM_MakeTipPicture(uint8_t* grey, size_t count);
