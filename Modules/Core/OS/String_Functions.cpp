#include "Core/OS/String_Functions.h"

#include <algorithm>

namespace {

constexpr std::string_view Blanks = " \t\n\r";
constexpr char Base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

char ToLowerASCII(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view Trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(Blanks);
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

struct BufferSink {
    char* text;
    size_t length = 0;
    void Put(char c) { text[length++] = c; }
    std::string_view View() const { return {text, length}; }
};

struct StringSink {
    std::string& text;
    void Put(char c) { text.push_back(c); }
    std::string_view View() const { return text; }
};

template <class Sink> bool ReadLineInto(Sink& sink, size_t limit, FILE* stream) {
    for (size_t length = 0; length < limit; ++length) {
        const int c = getc_unlocked(stream);
        if (c == EOF) return length > 0;
        if (c != '\n' && c != '\r') {
            sink.Put(static_cast<char>(c));
            continue;
        }
        // Behind this line binary data begin, whose first byte may look like the partner of the line end.
        if (c == '\n' && Trimmed(sink.View()) == "DATA_BEGIN") return true;
        const int next = getc_unlocked(stream);
        if (next != EOF && next != (c == '\n' ? '\r' : '\n')) ungetc(next, stream);
        return true;
    }
    return limit > 0;
}

int Base64Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

} // namespace

bool QLM_ReadLine(char* buffer, size_t size, FILE* stream) {
    if (size == 0) return false;
    BufferSink sink{buffer};
    const bool read = ReadLineInto(sink, size - 1, stream);
    buffer[sink.length] = 0;
    return read;
}

bool QLM_ReadLine(std::string& line, size_t maximum, FILE* stream) {
    line.clear();
    StringSink sink{line};
    return ReadLineInto(sink, maximum ? maximum - 1 : 0, stream);
}

std::string QLM_Trim(std::string_view text) { return std::string(Trimmed(text)); }

void QLM_SplitKeyValue(std::string_view line, std::string& key, std::string& value) {
    const std::string_view text = Trimmed(line);
    const size_t end = std::min(text.find_first_of(Blanks), text.size());
    const std::string rest(Trimmed(text.substr(end)));
    key.assign(text.substr(0, end));
    value = rest;
}

int QLM_CompareNoCase(std::string_view a, std::string_view b) {
    const size_t shorter = std::min(a.size(), b.size());
    for (size_t i = 0; i < shorter; ++i) {
        const int difference =
            static_cast<unsigned char>(ToLowerASCII(a[i])) - static_cast<unsigned char>(ToLowerASCII(b[i]));
        if (difference != 0) return difference < 0 ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

std::string QLM_KeyOfExpression(std::string_view text) {
    const size_t bracket = text.rfind('>');
    return std::string(bracket == text.npos ? text : text.substr(bracket + 1));
}

std::string QLM_ToLower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), ToLowerASCII);
    return lower;
}

std::string QLM_Base64Encode(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::string text;
    text.reserve((size + 2) / 3 * 4);
    for (size_t i = 0; i < size; i += 3) {
        const size_t left = size - i;
        const uint32_t group = bytes[i] << 16 | (left > 1 ? bytes[i + 1] << 8 : 0) | (left > 2 ? bytes[i + 2] : 0);
        text.push_back(Base64Alphabet[group >> 18]);
        text.push_back(Base64Alphabet[group >> 12 & 63]);
        text.push_back(left > 1 ? Base64Alphabet[group >> 6 & 63] : '=');
        text.push_back(left > 2 ? Base64Alphabet[group & 63] : '=');
    }
    return text;
}

bool QLM_Base64Decode(std::string_view text, std::vector<uint8_t>& out) {
    out.clear();
    for (int padding = 0; padding < 2 && !text.empty() && text.back() == '='; ++padding) text.remove_suffix(1);
    if (text.size() % 4 == 1) return false; // six bits alone make no byte
    uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const int value = Base64Value(c);
        if (value < 0) return false;
        bits = bits << 6 | static_cast<uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            out.push_back(static_cast<uint8_t>(bits >> count));
        }
    }
    return true;
}

namespace {
/// The number n of a text " (n)" of one to nine digits, else -1.
int CopyNumber(std::string_view text) {
    if (text.size() < 4 || text.size() > 12 || text.substr(0, 2) != " (" || text.back() != ')') return -1;
    int number = 0;
    for (const char c : text.substr(2, text.size() - 3)) {
        if (c < '0' || c > '9') return -1;
        number = number * 10 + (c - '0');
    }
    return number;
}
} // namespace

std::string QLM_MakeUniqueName(const std::vector<std::string>& taken, const std::string& base, const std::string& extension) {
    const std::string ending = extension.empty() ? std::string() : "." + extension;
    std::string stem = base;
    if (!ending.empty() && stem.size() > ending.size() && stem.ends_with(ending))
        stem.resize(stem.size() - ending.size());
    bool isTaken = false;
    int greatest = 0;
    for (const std::string& name : taken) {
        isTaken = isTaken || name == stem + ending;
        if (name.size() > stem.size() + ending.size() && name.starts_with(stem) && name.ends_with(ending)) {
            const std::string_view middle(name.data() + stem.size(), name.size() - stem.size() - ending.size());
            greatest = std::max(greatest, CopyNumber(middle));
        }
    }
    if (!isTaken) return stem + ending;
    return stem + " (" + std::to_string(greatest + 1) + ")" + ending;
}
