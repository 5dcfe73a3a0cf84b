#pragma once
// A report line.

#include <cstdint>
#include <cstdio>
#include <string>

/// One flat JSON object on a line.
class QLM_JSONLine {
  public:
    explicit QLM_JSONLine(FILE* fileIn) : file(fileIn) { std::fputc('{', file); }
    ~QLM_JSONLine() { std::fputs("}\n", file); }
    QLM_JSONLine(const QLM_JSONLine&) = delete;
    QLM_JSONLine& operator=(const QLM_JSONLine&) = delete;

    QLM_JSONLine& Text(const char* key, const std::string& value) {
        Key(key);
        std::fputc('"', file);
        const unsigned lastPlain = IsUTF8(value) ? 255 : 126; // bytes of old files are told letter by letter
        for (const char c : value) {
            const auto byte = static_cast<unsigned char>(c);
            if (c == '"' || c == '\\') std::fprintf(file, "\\%c", c);
            else if (byte < 32 || byte > lastPlain) std::fprintf(file, "\\u%04x", byte);
            else std::fputc(c, file);
        }
        std::fputc('"', file);
        return *this;
    }
    QLM_JSONLine& Integer(const char* key, long long value) {
        Key(key);
        std::fprintf(file, "%lld", value);
        return *this;
    }
    QLM_JSONLine& Number(const char* key, double value) {
        Key(key);
        std::fprintf(file, "%.9g", value);
        return *this;
    }
    QLM_JSONLine& Flag(const char* key, bool value) {
        Key(key);
        std::fputs(value ? "true" : "false", file);
        return *this;
    }
    QLM_JSONLine& Numbers(const char* key, const float* values, int count) {
        Key(key);
        std::fputc('[', file);
        for (int i = 0; i < count; ++i) std::fprintf(file, "%s%.9g", i ? ", " : "", values[i]);
        std::fputc(']', file);
        return *this;
    }
    QLM_JSONLine& Hash(const char* key, uint64_t value) {
        Key(key);
        std::fprintf(file, "\"%016llx\"", static_cast<unsigned long long>(value));
        return *this;
    }

  private:
    /// True where every letter beyond ASCII is whole and in its shortest form.
    static bool IsUTF8(const std::string& text) {
        for (size_t i = 0; i < text.size();) {
            const auto first = static_cast<unsigned char>(text[i++]);
            if (first < 0x80) continue;
            if (first < 0xc2 || first > 0xf4) return false;
            const int more = first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
            const auto second = static_cast<unsigned char>(i < text.size() ? text[i] : 0);
            if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f))
                return false;
            for (int k = 0; k < more; ++k, ++i)
                if (i == text.size() || (static_cast<unsigned char>(text[i]) & 0xc0) != 0x80) return false;
        }
        return true;
    }
    void Key(const char* key) {
        std::fprintf(file, "%s\"%s\": ", first ? "" : ", ", key);
        first = false;
    }
    FILE* file;
    bool first = true;
};
