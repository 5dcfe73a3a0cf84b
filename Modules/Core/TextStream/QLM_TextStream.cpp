#include "Core/TextStream/QLM_TextStream.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

int textDepth = 0; // one for the whole program: only one stream is written at a time

/// Reads `count` numbers from a text; `out` stays untouched unless all of them were there.
void ReadFloats(const std::string& text, float* out, int count) {
    float values[16];
    const char* at = text.c_str();
    for (int i = 0; i < count; ++i) {
        char* end = nullptr;
        values[i] = std::strtof(at, &end);
        if (end == at) return;
        at = end;
    }
    std::copy(values, values + count, out);
}

/// A line break inside a value would end the line early.
std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::replace(text.begin(), text.end(), '\r', ' ');
    return text;
}

} // namespace

bool TextCommand::Is(const char* name) {
    if (handled != 0 || QLM_CompareNoCase(key, name) != 0) return false;
    handled = 1;
    return true;
}

void TextCommand::ReadInt(int32_t& out) const {
    using Limits = std::numeric_limits<int32_t>;
    const long long number = std::strtoll(value.c_str(), nullptr, 10);
    out = static_cast<int32_t>(std::clamp<long long>(number, Limits::min(), Limits::max()));
}

void TextCommand::ReadUnsigned(uint32_t& out) const {
    const long long number = std::strtoll(value.c_str(), nullptr, 10);
    out = static_cast<uint32_t>(std::clamp<long long>(number, 0, std::numeric_limits<uint32_t>::max()));
}

void TextCommand::ReadFloat(float& out) const { out = static_cast<float>(std::atof(value.c_str())); }

void TextCommand::ReadBool(bool& out) const {
    int32_t number = 0;
    ReadInt(number);
    out = number != 0;
}

void TextCommand::ReadVector3(float* out) const { ReadFloats(value, out, 3); }
void TextCommand::ReadMatrix(float* out) const { ReadFloats(value, out, 16); }

TStartTextFileBlock::TStartTextFileBlock(const char* keyword, const char* name, FILE* stream, bool active)
    : file(active ? stream : nullptr) {
    if (!file) return;
    QLM_WriteText(file, keyword, name ? name : "");
    QLM_WriteIndent(file);
    std::fputs("{\n", file);
    ++textDepth;
}

TStartTextFileBlock::~TStartTextFileBlock() {
    if (!file) return;
    --textDepth;
    QLM_WriteIndent(file);
    std::fputs("}\n", file);
}

QLM_RestoreStreamPosition::QLM_RestoreStreamPosition(FILE* stream, bool active)
    : file(active ? stream : nullptr), position(active ? ftello(stream) : 0) {}

QLM_RestoreStreamPosition::~QLM_RestoreStreamPosition() {
    if (file) fseeko(file, position, SEEK_SET);
}

int QLM_TextDepth() { return textDepth; }

void QLM_WriteIndent(FILE* stream) {
    for (int i = 0; i < textDepth; ++i) std::fputc('\t', stream);
}

void QLM_WriteInt(FILE* stream, const char* key, int64_t value) {
    QLM_WriteIndent(stream);
    QLM_PrintToFile(stream, "%s\t%d\n", key, value);
}

void QLM_WriteFloat(FILE* stream, const char* key, double value) {
    QLM_WriteIndent(stream);
    QLM_PrintToFile(stream, "%s\t%.8f\n", key, value);
}

void QLM_WriteText(FILE* stream, const char* key, const std::string& value) {
    QLM_WriteIndent(stream);
    QLM_PrintToFile(stream, "%s\t%s\n", key, OneLine(value));
}

void QLM_WriteVector3(FILE* stream, const char* key, const float* value) {
    QLM_WriteIndent(stream);
    QLM_PrintToFile(stream, "%s\t%.8f %.8f %.8f\n", key, value[0], value[1], value[2]);
}

void QLM_WriteMatrix(FILE* stream, const char* key, const float* value) {
    QLM_WriteIndent(stream);
    QLM_PrintToFile(stream, "%s\t", key);
    for (int i = 0; i < 16; ++i) QLM_PrintToFile(stream, "%.8f ", value[i]);
    std::fputc('\n', stream);
}
