#pragma once
// The decoders and encoders behind QLM_ImageLoader, one a format. Private to this room. Any thread.

#include "Images/QLM_ImageLoader.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

/// Takes the decoded rows, so that each caller gets them where it wants them without a second copy of the picture.
class QLM_ImageSink {
  public:
    virtual ~QLM_ImageSink() = default;
    /// Called once before the first row: `channels` is 3 or 4. False when there is no memory.
    virtual bool Begin(uint32_t width, uint32_t height, int channels) = 0;
    /// One row of width x channels bytes, counted from the top. Each row comes once.
    virtual void SetRow(uint32_t rowFromTop, const uint8_t* samples) = 0;
};

/// An open file and what is found out about it. Readers start at its beginning.
struct QLM_ImageSource {
    FILE* file = nullptr;
    uint64_t size = 0;
    QLM_ImageInfo info;
    bool hasMaskColor = false;
    std::string notice;
    std::string reason; ///< why the reader answered false, without the file's name

    bool Fail(const std::string& text) {
        if (reason.empty()) reason = text;
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

extern const char* const QLM_ImageText_Truncated;
extern const char* const QLM_ImageText_Damaged;
extern const char* const QLM_ImageText_NoMemory;
extern const char* const QLM_ImageText_16Bit;
extern const char* const QLM_ImageText_CMYK;

// Readers fill `info`; with a sink they go on to the rows. False with `reason` set.
bool QLM_ReadPNG(QLM_ImageSource& source, QLM_ImageSink* sink);
bool QLM_ReadJPEG(QLM_ImageSource& source, QLM_ImageSink* sink);
bool QLM_ReadTIFF(QLM_ImageSource& source, QLM_ImageSink* sink);
/// The first picture of the file. The toolkit's own reader walks out of its tables on damaged codes.
bool QLM_ReadGIF(QLM_ImageSource& source, QLM_ImageSink* sink);
/// The formats of the toolkit: BMP, TGA and binary PNM, each checked whole before the toolkit sees it.
bool QLM_ReadWithToolkit(QLM_ImageSource& source, QLM_ImageSink* sink);

// Writers take blocks with row 0 at the bottom, `channels` 3 or 4. False when the file can't be written.
bool QLM_WritePNG(FILE* file, const uint8_t* pixels, uint32_t width, uint32_t height, int channels);
bool QLM_WriteJPEG(FILE* file, const uint8_t* pixels, uint32_t width, uint32_t height, int channels);
bool QLM_WriteTIFF(FILE* file, const uint8_t* pixels, uint32_t width, uint32_t height, int channels);
/// `extension` in lower case; false also when the toolkit can't write that format.
bool QLM_WriteWithToolkit(FILE* file, const std::string& extension, const uint8_t* pixels, uint32_t width,
                          uint32_t height, int channels);
