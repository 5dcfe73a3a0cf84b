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
        for (const char c : value) {
            if (c == '"' || c == '\\') std::fprintf(file, "\\%c", c);
            else if (static_cast<unsigned char>(c) < 32) std::fprintf(file, "\\u%04x", static_cast<unsigned>(c));
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
    void Key(const char* key) {
        std::fprintf(file, "%s\"%s\": ", first ? "" : ", ", key);
        first = false;
    }
    FILE* file;
    bool first = true;
};
