#pragma once
// Rows of a picture shared among the processors.

#include "Core/Threads/QLM_ThreadCruncher.h"

#include <cstdint>

/// Calls `body(first row, end row)`: on all processors where the picture is worth it and the caller isn't one of them.
/// Rows must not depend on each other.
template <class Body> void QLM_ForRows(uint32_t width, uint32_t height, const Body& body) {
    constexpr uint64_t worthThreads = 64 * 1024;
    if (uint64_t(width) * height < worthThreads || QLM_IsInsideCrunch()) body(0u, height);
    else
        QLM_ThreadCrunch(
            height, [&](const ThreadCrunchRange& range) { body(uint32_t(range.start), uint32_t(range.end)); },
            "QLM_ForRows");
}
