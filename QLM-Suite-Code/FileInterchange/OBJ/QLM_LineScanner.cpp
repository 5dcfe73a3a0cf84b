#include "FileInterchange/OBJ/QLM_LineScanner.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <string>

QLM_TextBlocks::QLM_TextBlocks(FILE* stream, size_t lineLimit, size_t blockBytes)
    : file(stream), limit(lineLimit), buffer(std::max(blockBytes, lineLimit + 1)) {}

std::string_view QLM_TextBlocks::Next() {
    std::memmove(buffer.data(), buffer.data() + handedOut, used - handedOut);
    used -= handedOut;
    used += std::fread(buffer.data() + used, 1, buffer.size() - used, file);
    handedOut = used;
    if (used == buffer.size()) {
        // More may follow: what stands behind the last line end waits for its rest.
        while (handedOut > 0 && buffer[handedOut - 1] != '\n' && buffer[handedOut - 1] != '\r') --handedOut;
        if (handedOut == 0) handedOut = used / limit * limit;
    }
    return {buffer.data(), handedOut};
}

namespace QLM_Scan {

std::string_view Trim(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view Word(std::string_view line, std::string_view& rest) {
    line = Trim(line);
    size_t length = 0;
    while (length < line.size() && !IsBlank(line[length])) ++length;
    rest = Trim(line.substr(length));
    return line.substr(0, length);
}

namespace {

/// A plain decimal of few digits, as nearly every number of a file is: digits and power of ten are exact doubles, so
/// their quotient is the nearest double. False, with nothing changed, where that may not round to the nearest float.
bool PlainDecimal(const char*& p, const char* end, float& out) {
    constexpr double powers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const char* at = p;
    const bool negative = at != end && *at == '-';
    if (negative) ++at;
    uint64_t digits = 0;
    int count = 0, decimals = 0;
    for (; at != end && *at >= '0' && *at <= '9' && count < 16; ++at, ++count)
        digits = digits * 10 + static_cast<uint64_t>(*at - '0');
    if (at != end && *at == '.')
        for (++at; at != end && *at >= '0' && *at <= '9' && count < 16; ++at, ++count, ++decimals)
            digits = digits * 10 + static_cast<uint64_t>(*at - '0');
    if (count == 0 || count == 16 || (at != end && !IsBlank(*at))) return false;
    const double value = static_cast<double>(digits) / powers[decimals];
    // Halfway between two floats the digits that the double could not hold decide.
    constexpr uint64_t belowFloat = (uint64_t{1} << 29) - 1, halfway = uint64_t{1} << 28;
    if ((std::bit_cast<uint64_t>(value) & belowFloat) == halfway) return false;
    const float rounded = static_cast<float>(value);
    out = negative ? -rounded : rounded;
    p = at;
    return true;
}

} // namespace

int Floats(std::string_view text, float* out, int count) {
    const char *p = text.data(), *end = p + text.size();
    for (int i = 0; i < count; ++i) {
        while (p != end && IsBlank(*p)) ++p;
        if (PlainDecimal(p, end, out[i])) continue;
        if (p != end && *p == '+') ++p;
        float value = 0;
        const auto result = std::from_chars(p, end, value);
        if (result.ec == std::errc::result_out_of_range || (end - p > 1 && (p[1] == 'x' || p[1] == 'X'))) {
            // Beyond the range, or hexadecimal: the library's own reader decides.
            const std::string copy(p, std::min<size_t>(64, static_cast<size_t>(end - p)));
            char* tail = nullptr;
            value = std::strtof(copy.c_str(), &tail);
            p += tail - copy.c_str();
        } else if (result.ec != std::errc()) {
            return i;
        } else {
            p = result.ptr;
        }
        out[i] = value;
    }
    return count;
}

} // namespace QLM_Scan
