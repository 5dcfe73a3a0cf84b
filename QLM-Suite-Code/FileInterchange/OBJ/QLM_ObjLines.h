#pragma once
// Lines of Wavefront text, formatted by workers and written in order.

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

/// Text that grows.
class QLM_LineBuffer {
  public:
    void Clear() { used = 0; }
    const char* GetData() const { return bytes.data(); }
    size_t GetSize() const { return used; }

    QLM_LineBuffer& operator<<(std::string_view text) {
        std::copy(text.begin(), text.end(), Room(text.size()));
        used += text.size();
        return *this;
    }
    QLM_LineBuffer& operator<<(char c) {
        *Room(1) = c;
        ++used;
        return *this;
    }
    QLM_LineBuffer& operator<<(int32_t value);
    /// A line of the keyword and `count` numbers as "%.8f", a blank before each.
    void Numbers(std::string_view keyword, const float* values, int count);

  private:
    /// Where the next `size` bytes may be written.
    char* Room(size_t size) {
        if (bytes.size() - used < size) bytes.resize(std::max(2 * bytes.size(), used + size + 1024));
        return bytes.data() + used;
    }
    std::vector<char> bytes;
    size_t used = 0;
};

/// Appends item 0..count-1 to the file, each with what `format(i, buffer)` makes of it; workers call it side by side.
/// What could not be written shows when the file is closed. Main thread, also on the road of a failure.
template <class Format> void QLM_WriteObjLines(FILE* file, int64_t count, Format format) {
    constexpr int64_t itemsOfShare = 4096, sharesOfRound = 16;
    std::vector<QLM_LineBuffer> shares(sharesOfRound);
    // Workers may hang in what went wrong.
    const bool alone = QLM_IsInsideCrunch() || QLM_IsFailureUnderWay();
    for (int64_t first = 0; first < count; first += itemsOfShare * sharesOfRound) {
        const auto formatShares = [&](int begin, int end) {
            for (int share = begin; share < end; ++share) {
                QLM_LineBuffer& buffer = shares[static_cast<size_t>(share)];
                buffer.Clear();
                const int64_t from = first + share * itemsOfShare, to = std::min(from + itemsOfShare, count);
                for (int64_t i = from; i < to; ++i) format(static_cast<int>(i), buffer);
            }
        };
        if (alone) formatShares(0, sharesOfRound);
        else
            QLM_ThreadCrunch(
                sharesOfRound,
                [&](const ThreadCrunchRange& range) {
                    QLM_TRACE(3);
                    formatShares(range.start, range.end);
                },
                "Write_OBJ_ThreadFunc");
        for (const QLM_LineBuffer& buffer : shares) std::fwrite(buffer.GetData(), 1, buffer.GetSize(), file);
    }
}
