#pragma once
// Boxes of many points. Private to this room.

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"

#include <algorithm>
#include <cstring>
#include <limits>

/// An axis-aligned box that starts out holding nothing.
struct QLM_PointBox {
    float min[3] = {huge, huge, huge}, max[3] = {-huge, -huge, -huge};

    void Add(const float* p) {
        for (int k = 0; k < 3; ++k) {
            min[k] = std::min(min[k], p[k]);
            max[k] = std::max(max[k], p[k]);
        }
    }
    void Merge(const QLM_PointBox& other) {
        Add(other.min);
        Add(other.max);
    }
    bool IsEmpty() const { return min[0] > max[0]; }
    /// Writes the box, zeros when it holds nothing.
    void CopyTo(float* minimum, float* maximum) const {
        for (int k = 0; k < 3; ++k) {
            minimum[k] = IsEmpty() ? 0.0f : min[k];
            maximum[k] = IsEmpty() ? 0.0f : max[k];
        }
    }

  private:
    static constexpr float huge = std::numeric_limits<float>::infinity();
};

/// Runs body(i, box) for 0..n-1 on the cruncher, each slot with a box of its own, and returns their union.
template <class Body> QLM_PointBox QLM_CrunchBox(int n, const char* name, Body body) {
    QLM_PointBox boxes[QLM_MaximumThreads];
    QLM_ThreadCrunch(n, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        QLM_PointBox box;
        for (int i = range.start; i < range.end; ++i) body(i, box);
        boxes[range.threadIndex] = box;
    }, name);
    QLM_PointBox whole;
    for (const QLM_PointBox& box : boxes)
        if (!box.IsEmpty()) whole.Merge(box);
    return whole;
}
