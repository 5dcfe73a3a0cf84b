#pragma once
// Image files to pixel blocks and back. Blocks are interleaved bytes, no padding, row 0 at the bottom.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// What a file announces, known before memory is taken.
struct QLM_ImageInfo {
    enum class Kind { Unknown, PNG, JPEG, TIFF, Other };
    Kind kind = Kind::Unknown;
    uint32_t width = 0, height = 0;
    int bitsPerSample = 8;
    bool hasAlpha = false;
};

/// A decoded picture: `color` has width x height x 3 bytes, `alpha` width x height or none.
struct QLM_LoadedImage {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> color;
    std::vector<uint8_t> alpha;
    bool hasMaskColor = false; ///< alpha was made from a colour key
    std::string notice;        ///< what was lost on the way in (16 bit, CMYK), empty for nothing
};

/// The longest side and the most pixels of a picture that is decoded. Maps cut longer sides than theirs down.
constexpr uint32_t QLM_MaximumImageSide = 1000000;
constexpr uint64_t QLM_MaximumImagePixels = 900000000;

/// Reads the header; false with a one-line reason that names the file.
bool QLM_ReadImageInfo(const std::string& path, QLM_ImageInfo& out, std::string& error);
/// Loads a picture, its format found from the content. False with a reason that names the file, and `out` untouched.
/// 16-bit samples become v >> 8. Any thread.
bool QLM_LoadImage(const std::string& path, QLM_LoadedImage& out, std::string& error);
/// Loads as one block: depth 4 with alpha, else 3. Outputs are untouched on failure. The caller frees with QLM_Free.
/// `notice` tells what was lost on the way in, empty for nothing.
bool LoadImageFile(const std::string& path, uint8_t*& pixels, uint32_t& width, uint32_t& height, bool& alpha,
                   int& depth, std::string& error, std::string* notice = nullptr);

/// Saves depth 3 (or 4 with alpha) by the file name's extension, JPEG quality 100, beside the target and renamed.
/// A format without alpha drops it and says so in `notice`. False with a reason.
bool SaveMapToFile(const std::string& path, const uint8_t* pixels, uint32_t width, uint32_t height, bool hasAlpha,
                   std::string& error, std::string* notice = nullptr);

/// Fills `samples` with row `rowFromBottom` of a picture, width x 3 bytes (x 4 with alpha). A writer may ask from
/// several threads at once and in any order, each row at least once.
using QLM_ImageRowFunction = std::function<void(uint32_t rowFromBottom, uint8_t* samples)>;
/// SaveMapToFile for a picture that exists only row by row: no format holds more than a few rows at a time but those of
/// the toolkit.
bool SaveMapRowsToFile(const std::string& path, const QLM_ImageRowFunction& rows, uint32_t width, uint32_t height,
                       bool hasAlpha, std::string& error, std::string* notice = nullptr);

/// Takes the decoded rows of a picture, so that each caller gets them where it wants them without a second copy.
class QLM_ImageSink {
  public:
    virtual ~QLM_ImageSink() = default;
    /// Called once before the first row: `channels` is 3 or 4. False when there is no memory.
    virtual bool Begin(uint32_t width, uint32_t height, int channels) = 0;
    /// One row of width x channels bytes, counted from the top. Each row comes once.
    virtual void SetRow(uint32_t rowFromTop, const uint8_t* samples) = 0;
};
/// Loads a picture into a sink; on failure (false, with a reason that names the file) the sink may hold some rows.
bool QLM_LoadImageRows(const std::string& path, QLM_ImageSink& sink, std::string& notice, std::string& error);

/// Bilinear with the uncentred mapping u = x / dstW x srcW; depths 1, 3, 4, others log and answer false.
bool ResizeImage(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH,
                 int depth);
/// Integer nearest: source column x * srcW / dstW.
bool ResizeImageClosest(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH,
                        int depth);
/// Float nearest, truncated and clamped to the last column and row.
bool ResizeImageClosestF(uint8_t* dst, uint32_t dstW, uint32_t dstH, const uint8_t* src, uint32_t srcW, uint32_t srcH,
                         int depth);

/// Registers the toolkit's handlers of the formats that it writes; once, main thread, no display needed.
void QLM_InitializeImageHandlers();
