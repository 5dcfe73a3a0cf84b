#pragma once
// Lines and numbers of Wavefront text, scanned without copying.

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

/// Hands out the text of a stream from where it stands in blocks that begin at a line and end behind one.
class QLM_TextBlocks {
  public:
    /// `lineLimit`: characters of a line at most; `blockBytes`: the size of a block at most, above the limit.
    QLM_TextBlocks(FILE* stream, size_t lineLimit, size_t blockBytes);
    /// The next block, valid until the next call; empty at the end. A line that fills a whole block is cut where its
    /// lines end anyway, behind a multiple of the limit.
    std::string_view Next();

  private:
    FILE* file;
    size_t limit;
    std::vector<char> buffer;
    size_t used = 0, handedOut = 0;
};

/// The lines of a text: CR or LF ends one, so a pair of them gives an empty line more, which says nothing in this
/// format. A line beyond the limit goes on as the next.
class QLM_LineScanner {
  public:
    QLM_LineScanner(std::string_view text, size_t lineLimit)
        : cursor(text.data()), end(text.data() + text.size()), limit(lineLimit) {}
    bool Next(std::string_view& line) {
        if (cursor == end) return false;
        const char* start = cursor;
        const char* stop = static_cast<size_t>(end - start) > limit ? start + limit : end;
        // The next line feed is looked for once, or texts without any would be searched again for each line.
        if (nextFeed < start) {
            nextFeed = static_cast<const char*>(std::memchr(start, '\n', static_cast<size_t>(end - start)));
            if (!nextFeed) nextFeed = end;
        }
        if (nextFeed < stop) stop = nextFeed;
        if (const void* found = std::memchr(start, '\r', static_cast<size_t>(stop - start)))
            stop = static_cast<const char*>(found);
        line = {start, static_cast<size_t>(stop - start)};
        cursor = stop;
        if (cursor < end && (*cursor == '\n' || *cursor == '\r')) ++cursor;
        return true;
    }
    /// The first character behind the lines handed out so far.
    const char* GetCursor() const { return cursor; }

  private:
    const char *cursor, *end;
    const char* nextFeed = nullptr;
    size_t limit;
};

namespace QLM_Scan {
inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }
/// Cuts blanks, tabs and stray line ends at both ends.
std::string_view Trim(std::string_view text);
/// The first blank-delimited word; `rest` is what follows, trimmed at both ends.
std::string_view Word(std::string_view line, std::string_view& rest);
/// Reads up to `count` floats as "%f %f ..." does; returns how many were read, leaving the others untouched.
int Floats(std::string_view text, float* out, int count);
/// Reads one integer as "%d" does, moving `p` behind it; a number beyond 32 bits is cut to the nearest end.
inline bool Integer(const char*& p, const char* end, int& out) {
    const char* at = p;
    while (at != end && (IsBlank(*at) || *at == '\v' || *at == '\f')) ++at;
    const bool negative = at != end && *at == '-';
    if (at != end && (*at == '-' || *at == '+')) ++at;
    if (at == end || *at < '0' || *at > '9') return false;
    int64_t value = 0;
    for (; at != end && *at >= '0' && *at <= '9'; ++at)
        if (value <= INT_MAX) value = value * 10 + (*at - '0');
    if (value > INT_MAX) value = INT_MAX;
    out = static_cast<int>(negative ? -value : value);
    p = at;
    return true;
}
} // namespace QLM_Scan
