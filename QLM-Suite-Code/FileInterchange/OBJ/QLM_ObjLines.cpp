#include "FileInterchange/OBJ/QLM_ObjLines.h"

#include <bit>
#include <charconv>

namespace {

constexpr uint32_t DecimalsFactor = 100'000'000;
constexpr size_t LongestInteger = 11, LongestNumber = 64; // digits of the greatest float, decimals, sign

/// The value times 10^8 as printf rounds it: exact, to the nearest, ties to even. False for what is too great.
bool ScaledDecimals(uint32_t bits, uint64_t& out) {
    const int exponent = static_cast<int>(bits >> 23 & 255);
    uint64_t mantissa = bits & 0x7fffff;
    if (exponent > 0) mantissa |= 0x800000;
    const int shift = 150 - std::max(exponent, 1); // the value is mantissa / 2^shift
    if (shift < 0) return false;
    const uint64_t product = mantissa * DecimalsFactor; // below 2^51
    if (shift == 0 || shift > 63) {
        out = shift == 0 ? product : 0;
        return true;
    }
    const uint64_t rest = product & ((uint64_t{1} << shift) - 1), half = uint64_t{1} << (shift - 1);
    out = product >> shift;
    if (rest > half || (rest == half && (out & 1))) ++out;
    return true;
}

char* WriteFixed(char* at, float value) {
    const uint32_t bits = std::bit_cast<uint32_t>(value);
    uint64_t scaled;
    if (!ScaledDecimals(bits, scaled))
        return std::to_chars(at, at + LongestNumber, static_cast<double>(value), std::chars_format::fixed, 8).ptr;
    if (bits >> 31) *at++ = '-';
    at = std::to_chars(at, at + LongestInteger, scaled / DecimalsFactor).ptr;
    *at = '.';
    auto decimals = static_cast<uint32_t>(scaled % DecimalsFactor);
    for (int i = 8; i > 0; --i, decimals /= 10) at[i] = static_cast<char>('0' + decimals % 10);
    return at + 9;
}

} // namespace

QLM_LineBuffer& QLM_LineBuffer::operator<<(int32_t value) {
    char* at = Room(LongestInteger);
    used += static_cast<size_t>(std::to_chars(at, at + LongestInteger, value).ptr - at);
    return *this;
}

void QLM_LineBuffer::Numbers(std::string_view keyword, const float* values, int count) {
    *this << keyword;
    char* const start = Room((LongestNumber + 1) * static_cast<size_t>(count) + 1);
    char* at = start;
    for (int i = 0; i < count; ++i) {
        *at++ = ' ';
        at = WriteFixed(at, values[i]);
    }
    *at++ = '\n';
    used += static_cast<size_t>(at - start);
}
