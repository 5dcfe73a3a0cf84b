#pragma once
// The text stream protocol: lines of key, tab, value and blocks in braces, with compressed binary blocks.
// One stream is read or written at a time, on one thread.

#include "Core/OS/QLM_Format.h"
#include "Core/OS/String_Functions.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

constexpr size_t QLM_TextStreamLineLimit = 999;

/// One line while it is offered around; the first matching Is claims it.
class TextCommand {
  public:
    TextCommand(std::string keyIn, std::string valueIn) : key(std::move(keyIn)), value(std::move(valueIn)) {}

    /// True, and claims the line, when nobody has yet and the keys are equal without regard to case.
    bool Is(const char* name);
    bool Handled() const { return handled > 0; }
    /// Takes over a delegated handler's answer.
    void Merge(bool result) { if (handled == 0 && result) handled = 1; }

    void ReadInt(int32_t& out) const;
    void ReadUnsigned(uint32_t& out) const; ///< negative gives 0
    void ReadFloat(float& out) const;
    void ReadBool(bool& out) const; ///< true for every non-zero integer
    void ReadString(std::string& out) const { out = value; }
    void ReadVector3(float* out) const; ///< untouched unless three numbers were read
    void ReadMatrix(float* out) const;  ///< untouched unless sixteen numbers were read

    int32_t handled = 0;
    std::string key;
    std::string value;
};

/// Writes "keyword TAB name", "{" and indents until destruction, which writes "}"; does nothing if not active.
class TStartTextFileBlock {
  public:
    TStartTextFileBlock(const char* keyword, const char* name, FILE* stream, bool active = true);
    ~TStartTextFileBlock();
    TStartTextFileBlock(const TStartTextFileBlock&) = delete;
    TStartTextFileBlock& operator=(const TStartTextFileBlock&) = delete;

  private:
    FILE* file;
};

/// Puts a stream back to where it was at construction, when active.
class QLM_RestoreStreamPosition {
  public:
    QLM_RestoreStreamPosition(FILE* stream, bool active);
    ~QLM_RestoreStreamPosition();
    QLM_RestoreStreamPosition(const QLM_RestoreStreamPosition&) = delete;
    QLM_RestoreStreamPosition& operator=(const QLM_RestoreStreamPosition&) = delete;

  private:
    FILE* file;
    int64_t position;
};

int QLM_TextDepth();
void QLM_WriteIndent(FILE* stream);

/// Indents and writes one line "key TAB value".
void QLM_WriteInt(FILE* stream, const char* key, int64_t value);
void QLM_WriteFloat(FILE* stream, const char* key, double value); ///< "%.8f"
void QLM_WriteText(FILE* stream, const char* key, const std::string& value);
void QLM_WriteVector3(FILE* stream, const char* key, const float* value);
void QLM_WriteMatrix(FILE* stream, const char* key, const float* value); ///< sixteen "%.8f " on one line

/// Reads on to the "}" that matches a "{" already consumed, leaping over binary blocks; false at the file's end.
bool QLM_SkipTextBlock(FILE* stream);

/// Bytes between the stream's position and its end, for checks of announced sizes.
int64_t QLM_BytesLeft(FILE* stream);

/// Writes a compressed binary block (zlib level 1) named `name` at the present depth.
void QLM_WriteCompressedBlock(FILE* stream, const char* name, const void* data, size_t size);
/// Reads a compressed (or, without a compressedDataSize line, raw) binary block. With `expectedSize` >= 0 any other
/// raw size fails; sizes are checked against the bytes left in the file before memory is taken. False on failure,
/// with the stream behind the block where its end could be found.
bool QLM_ReadCompressedBlock(FILE* stream, std::vector<uint8_t>& out, int64_t expectedSize = -1);
