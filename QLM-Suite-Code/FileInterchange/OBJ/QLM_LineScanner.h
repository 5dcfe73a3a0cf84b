#pragma once
// Lines and numbers of Wavefront text, scanned without copying.

#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

/// Hands out the lines of a stream from where it stands: CR, LF, CRLF and LFCR end a line, a longer line than the
/// limit goes on as the next. A line is valid until the next call.
class QLM_LineScanner {
  public:
    /// `limit`: characters of a line at most.
    QLM_LineScanner(FILE* stream, size_t limit);
    bool Next(std::string_view& line);
    /// Position in the stream behind the last line.
    int64_t GetPosition() const { return base + static_cast<int64_t>(cursor); }

  private:
    bool Fill();

    FILE* file;
    size_t limit;
    std::vector<char> buffer;
    size_t cursor = 0, end = 0;
    int64_t base; ///< stream position of the buffer's first byte
    bool atEnd = false;
};

namespace QLM_Scan {
inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }
/// Cuts blanks, tabs and stray line ends at both ends.
std::string_view Trim(std::string_view text);
/// The first blank-delimited word; `rest` is what follows, trimmed at both ends.
std::string_view Word(std::string_view line, std::string_view& rest);
/// Reads up to `count` floats as "%f %f ..." does; returns how many were read, leaving the others untouched.
int Floats(std::string_view text, float* out, int count);
/// Reads one integer as "%d" does, moving `text` behind it; a number beyond 32 bits is cut to the nearest end.
bool Integer(std::string_view& text, int& out);
/// Takes one character off the front when it is `c`.
inline bool Take(std::string_view& text, char c) {
    if (text.empty() || text.front() != c) return false;
    text.remove_prefix(1);
    return true;
}
} // namespace QLM_Scan
