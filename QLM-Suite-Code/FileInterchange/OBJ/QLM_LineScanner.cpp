#include "FileInterchange/OBJ/QLM_LineScanner.h"

#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {
constexpr size_t BufferSize = 1 << 20;
}

QLM_LineScanner::QLM_LineScanner(FILE* stream, size_t limitIn)
    : file(stream), limit(limitIn), buffer(BufferSize), base(ftello(stream)) {}

/// Moves what is left to the front and reads on; false when nothing was added.
bool QLM_LineScanner::Fill() {
    if (atEnd) return false;
    std::memmove(buffer.data(), buffer.data() + cursor, end - cursor);
    base += static_cast<int64_t>(cursor);
    end -= cursor;
    cursor = 0;
    const size_t got = std::fread(buffer.data() + end, 1, buffer.size() - end, file);
    end += got;
    if (got == 0) atEnd = true;
    return got > 0;
}

bool QLM_LineScanner::Next(std::string_view& line) {
    // A whole line with its two possible end bytes must stand in the buffer.
    if (end - cursor < limit + 2)
        while (end - cursor < limit + 2 && Fill()) {}
    if (cursor == end) return false;
    const char* start = buffer.data() + cursor;
    const size_t available = end - cursor < limit ? end - cursor : limit;
    size_t length = 0;
    while (length < available && start[length] != '\n' && start[length] != '\r') ++length;
    line = {start, length};
    cursor += length;
    if (length < limit && cursor < end) {
        const char first = buffer[cursor++];
        if (cursor < end && (buffer[cursor] == '\n' || buffer[cursor] == '\r') && buffer[cursor] != first) ++cursor;
    }
    return true;
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

int Floats(std::string_view text, float* out, int count) {
    for (int i = 0; i < count; ++i) {
        while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
        std::string_view number = text;
        if (!number.empty() && number.front() == '+') number.remove_prefix(1);
        float value = 0;
        auto result = std::from_chars(number.data(), number.data() + number.size(), value);
        const char* behind = result.ptr;
        if (result.ec == std::errc::result_out_of_range ||
            (number.size() > 1 && (number[1] == 'x' || number[1] == 'X'))) {
            // Beyond the range, or hexadecimal: the library's own reader decides.
            const std::string copy(number.substr(0, 64));
            char* tail = nullptr;
            value = std::strtof(copy.c_str(), &tail);
            behind = number.data() + (tail - copy.c_str());
        } else if (result.ec != std::errc()) {
            return i;
        }
        out[i] = value;
        text.remove_prefix(static_cast<size_t>(behind - text.data()));
    }
    return count;
}

bool Integer(std::string_view& text, int& out) {
    std::string_view t = text;
    while (!t.empty() && (IsBlank(t.front()) || t.front() == '\v' || t.front() == '\f')) t.remove_prefix(1);
    bool negative = false;
    if (!t.empty() && (t.front() == '-' || t.front() == '+')) {
        negative = t.front() == '-';
        t.remove_prefix(1);
    }
    if (t.empty() || t.front() < '0' || t.front() > '9') return false;
    int64_t value = 0;
    while (!t.empty() && t.front() >= '0' && t.front() <= '9') {
        if (value <= INT_MAX) value = value * 10 + (t.front() - '0');
        t.remove_prefix(1);
    }
    if (value > INT_MAX) value = INT_MAX;
    out = static_cast<int>(negative ? -value : value);
    text = t;
    return true;
}

} // namespace QLM_Scan
