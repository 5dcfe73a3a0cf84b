#pragma once
// The decoders and encoders behind QLM_ImageLoader, one a format. Private to this room. Any thread.

#include "Images/QLM_ImageLoader.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

/// An open file and what is found out about it. Readers start at its beginning.
struct QLM_ImageSource {
    FILE* file = nullptr;
    uint64_t size = 0;
    QLM_ImageInfo info;
    bool hasMaskColor = false;
    std::string notice;
    std::string reason; ///< why the reader answered false, without the file's name

    /// The first reason stands, as one line whatever a library wrote.
    bool Fail(const std::string& text) {
        if (reason.empty()) reason = text;
        std::replace_if(reason.begin(), reason.end(), [](char c) { return uint8_t(c) < ' '; }, ' ');
        return false;
    }
    void AddNotice(const std::string& text) {
        if (notice.find(text) != std::string::npos) return;
        if (!notice.empty()) notice += ", ";
        notice += text;
    }
    /// The whole file; only for formats whose pictures are small or stand in memory as they lie in the file.
    bool ReadAll(std::vector<uint8_t>& bytes);
    /// Refuses an empty picture, a side beyond the limit, and data that so many packed bytes can't unpack to.
    /// @param rowBits  bits of one row as they lie in the file, unpacked
    /// @param ratio    the most bytes that one byte of the file can stand for
    bool CheckSize(uint64_t rowBits, uint64_t ratio);
};

/// A whole file, for readers that jump about in it. Numbers are little endian; what lies beyond the end is 0.
struct QLM_FileBytes {
    uint32_t At(size_t i) const { return i < bytes.size() ? bytes[i] : 0; }
    uint32_t Two(size_t i) const { return At(i) | At(i + 1) << 8; }
    uint32_t Four(size_t i) const { return Two(i) | Two(i + 2) << 16; }
    std::vector<uint8_t> bytes;
};

extern const char* const QLM_ImageText_Unknown;
extern const char* const QLM_ImageText_Truncated;
extern const char* const QLM_ImageText_Damaged;
extern const char* const QLM_ImageText_NoMemory;
extern const char* const QLM_ImageText_16Bit;
extern const char* const QLM_ImageText_CMYK;
extern const char* const QLM_ImageText_FirstOnly;

// Readers fill `info`; with a sink they go on to the rows. False with `reason` set.
bool QLM_ReadPNG(QLM_ImageSource& source, QLM_ImageSink* sink);
bool QLM_ReadJPEG(QLM_ImageSource& source, QLM_ImageSink* sink);
bool QLM_ReadTIFF(QLM_ImageSource& source, QLM_ImageSink* sink);
/// The first picture of the file. The toolkit's own reader walks out of its tables on damaged codes.
bool QLM_ReadGIF(QLM_ImageSource& source, QLM_ImageSink* sink);
bool QLM_ReadBMP(QLM_ImageSource& source, QLM_ImageSink* sink);
/// Also for what is no picture at all, as the format has no signature.
bool QLM_ReadTGA(QLM_ImageSource& source, QLM_ImageSink* sink);
/// Binary grey and colour.
bool QLM_ReadPNM(QLM_ImageSource& source, QLM_ImageSink* sink);

/// A picture on its way into a file.
struct QLM_ImageRows {
    uint32_t width, height;
    int channels; ///< 3 or 4
    const QLM_ImageRowFunction& fill;

    size_t RowBytes() const { return size_t(width) * size_t(channels); }
    /// The flip: files begin with the top row.
    void Get(uint32_t rowFromTop, uint8_t* samples) const { fill(height - 1 - rowFromTop, samples); }
};

// Writers. False when the file can't be written.
bool QLM_WritePNG(FILE* file, const QLM_ImageRows& image);
bool QLM_WriteJPEG(FILE* file, const QLM_ImageRows& image);
bool QLM_WriteTIFF(FILE* file, const QLM_ImageRows& image);
/// `extension` in lower case; false also when the toolkit can't write that format. Holds the whole picture.
bool QLM_WriteWithToolkit(FILE* file, const std::string& extension, const QLM_ImageRows& image);
