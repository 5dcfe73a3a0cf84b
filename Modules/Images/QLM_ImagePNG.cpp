#include "Images/QLM_DeflateRuns.h"
#include "Images/QLM_ImageFormats.h"

#include "Core/Threads/QLM_ThreadCruncher.h"

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <vector>

namespace {

constexpr uint64_t deflateRatio = 1032; ///< a match of 258 bytes in two bits

// ---------------------------------------------------------------------------------------------------- reading

/// libpng leaves its functions by longjmp: all that must be freed is a member here, no local of a function that sets
/// a jump.
class Reader {
  public:
    Reader(QLM_ImageSource& sourceIn) : source(sourceIn) {
        png = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning);
        info = png ? png_create_info_struct(png) : nullptr;
    }
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool ReadHeader();
    bool ReadRows(QLM_ImageSink& sink);

  private:
    static void OnError(png_structp png, png_const_charp text) {
        static_cast<Reader*>(png_get_error_ptr(png))->source.Fail(text);
        longjmp(png_jmpbuf(png), 1);
    }
    static void OnWarning(png_structp, png_const_charp) {}
    /// The chunk that begins an animation starts with the number of its frames.
    static int OnUnknownChunk(png_structp png, png_unknown_chunkp chunk) {
        if (memcmp(chunk->name, "acTL", 4) == 0 && chunk->size >= 4 && png_get_uint_32(chunk->data) > 1)
            static_cast<Reader*>(png_get_user_chunk_ptr(png))->source.AddNotice(QLM_ImageText_FirstOnly);
        return 1;
    }
    static void OnRead(png_structp png, png_bytep bytes, size_t count) {
        auto* reader = static_cast<Reader*>(png_get_io_ptr(png));
        if (fread(bytes, 1, count, reader->source.file) != count) png_error(png, QLM_ImageText_Truncated);
    }
    bool StartRows();
    bool ReadPlain(QLM_ImageSink& sink);
    bool ReadInterlaced(QLM_ImageSink& sink);

    QLM_ImageSource& source;
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::vector<uint8_t> buffer;
    std::vector<png_bytep> rows;
    size_t rowBytes = 0;
    uint32_t row = 0;
};

bool Reader::ReadHeader() {
    if (!info) return source.Fail(QLM_ImageText_NoMemory);
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_read_fn(png, this, OnRead);
    // The library's own limit would hide the size from the message.
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_read_user_chunk_fn(png, this, OnUnknownChunk);
    png_read_info(png, info);

    const int colorType = png_get_color_type(png, info);
    const bool hasKey = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    source.info.width = png_get_image_width(png, info);
    source.info.height = png_get_image_height(png, info);
    source.info.bitsPerSample = png_get_bit_depth(png, info);
    source.info.hasAlpha = (colorType & PNG_COLOR_MASK_ALPHA) || hasKey;
    source.hasMaskColor = hasKey && colorType != PNG_COLOR_TYPE_PALETTE;
    const uint64_t pixelBits = uint64_t(source.info.bitsPerSample) * png_get_channels(png, info);
    return source.CheckSize(source.info.width * pixelBits, deflateRatio);
}

bool Reader::StartRows() {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_expand(png);
    png_set_gray_to_rgb(png);
    if (source.info.bitsPerSample == 16) {
        png_set_strip_16(png);
        source.AddNotice(QLM_ImageText_16Bit);
    }
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    rowBytes = png_get_rowbytes(png, info);
    const size_t expected = size_t(source.info.width) * (source.info.hasAlpha ? 4 : 3);
    return rowBytes == expected || source.Fail("its kind of pixels is not known");
}

bool Reader::ReadPlain(QLM_ImageSink& sink) {
    buffer.resize(rowBytes);
    if (setjmp(png_jmpbuf(png))) return false;
    for (row = 0; row < source.info.height; row++) {
        png_read_row(png, buffer.data(), nullptr);
        sink.SetRow(row, buffer.data());
    }
    png_read_end(png, nullptr);
    return true;
}

bool Reader::ReadInterlaced(QLM_ImageSink& sink) {
    buffer.resize(rowBytes * source.info.height);
    rows.resize(source.info.height);
    for (size_t y = 0; y < rows.size(); y++) rows[y] = buffer.data() + y * rowBytes;
    if (setjmp(png_jmpbuf(png))) return false;
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    for (row = 0; row < source.info.height; row++) sink.SetRow(row, rows[row]);
    return true;
}

bool Reader::ReadRows(QLM_ImageSink& sink) {
    if (!StartRows()) return false;
    if (!sink.Begin(source.info.width, source.info.height, source.info.hasAlpha ? 4 : 3))
        return source.Fail(QLM_ImageText_NoMemory);
    return png_get_interlace_type(png, info) == PNG_INTERLACE_NONE ? ReadPlain(sink) : ReadInterlaced(sink);
}

// ---------------------------------------------------------------------------------------------------- writing

/// Bytes of a band before packing. Bands are packed each for itself, so the split may depend on the size alone.
constexpr size_t bandBytes = 512 * 1024;
constexpr uint32_t bandsAtOnce = 32;

struct Band {
    std::vector<uint8_t> packed;
    uLong checksum = 0;
    size_t rawBytes = 0;
};

/// Sixteen bytes that are computed with as one.
typedef uint8_t ByteLanes __attribute__((vector_size(16)));
typedef uint16_t WordLanes __attribute__((vector_size(16)));

/// out = row - other, modulo 256. Answers the sum of the differences' absolute values as signed bytes: the usual guess
/// at how well a filtered row packs.
uint64_t Subtract(const uint8_t* row, const uint8_t* other, size_t count, uint8_t* out) {
    constexpr size_t lanes = 16, stepsToFull = 255; // a step adds at most 2 x 128 to a word
    uint64_t sum = 0;
    size_t i = 0;
    while (i + lanes <= count) {
        WordLanes words = {};
        for (size_t step = 0; step < stepsToFull && i + lanes <= count; step++, i += lanes) {
            ByteLanes a, b;
            memcpy(&a, row + i, lanes);
            memcpy(&b, other + i, lanes);
            a -= b;
            memcpy(out + i, &a, lanes);
            const ByteLanes negative = -a;
            const auto sizes = reinterpret_cast<WordLanes>(a < negative ? a : negative);
            words += (sizes & 255) + (sizes >> 8);
        }
        for (size_t k = 0; k < lanes / 2; k++) sum += words[k];
    }
    for (; i < count; i++) {
        out[i] = uint8_t(row[i] - other[i]);
        sum += uint64_t(std::min<int>(out[i], 256 - out[i]));
    }
    return sum;
}

class Writer {
  public:
    Writer(FILE* fileIn, const QLM_ImageRows& imageIn)
        : file(fileIn), image(imageIn), rowBytes(imageIn.RowBytes()),
          bandRows(uint32_t(std::clamp<size_t>(bandBytes / (rowBytes + 1), 1, imageIn.height))) {}

    bool Write();

  private:
    void FilterRow(const uint8_t* row, const uint8_t* above, uint8_t* out, std::vector<uint8_t>& scratch) const;
    void PackBand(uint32_t index, Band& band) const;
    bool WriteChunk(const char* type, const uint8_t* bytes, size_t count) const;

    FILE* const file;
    const QLM_ImageRows& image;
    const size_t rowBytes;
    const uint32_t bandRows;
};

/// Writes the filter's number and the filtered row: Sub or Up, whichever seems to pack better; Sub with no row above.
void Writer::FilterRow(const uint8_t* row, const uint8_t* above, uint8_t* out, std::vector<uint8_t>& scratch) const {
    const size_t channels = size_t(image.channels);
    out[0] = 1;
    memcpy(out + 1, row, channels);
    const uint64_t costOfSub = Subtract(row + channels, row, rowBytes - channels, out + 1 + channels);
    if (above && Subtract(row, above, rowBytes, scratch.data()) <= costOfSub) {
        out[0] = 2;
        memcpy(out + 1, scratch.data(), rowBytes);
    }
}

void Writer::PackBand(uint32_t index, Band& band) const {
    const uint32_t first = index * bandRows, last = std::min(first + bandRows, image.height);
    std::vector<uint8_t> raw((rowBytes + 1) * (last - first)), scratch(rowBytes), row(rowBytes), above(rowBytes);
    if (first > 0) image.Get(first - 1, above.data());
    for (uint32_t y = first; y < last; y++) {
        image.Get(y, row.data());
        FilterRow(row.data(), y > 0 ? above.data() : nullptr, raw.data() + (rowBytes + 1) * (y - first), scratch);
        row.swap(above);
    }
    band.rawBytes = raw.size();
    band.checksum = adler32_z(adler32(0, nullptr, 0), raw.data(), raw.size());

    band.packed = QLM_DeflateRuns(raw.data(), raw.size(), last == image.height);
}

void PutBigEndian(uint8_t* bytes, uint32_t value) {
    for (int i = 0; i < 4; i++) bytes[i] = uint8_t(value >> (24 - 8 * i));
}

bool Writer::WriteChunk(const char* type, const uint8_t* bytes, size_t count) const {
    uint8_t head[8], tail[4];
    PutBigEndian(head, uint32_t(count));
    memcpy(head + 4, type, 4);
    uLong crc = crc32(0, head + 4, 4);
    if (count > 0) crc = crc32_z(crc, bytes, count);
    PutBigEndian(tail, uint32_t(crc));
    return fwrite(head, 1, 8, file) == 8 && fwrite(bytes, 1, count, file) == count && fwrite(tail, 1, 4, file) == 4;
}

bool Writer::Write() {
    uint8_t header[13] = {};
    PutBigEndian(header, image.width);
    PutBigEndian(header + 4, image.height);
    header[8] = 8;
    header[9] = image.channels == 4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB;
    const uint8_t zlibHeader[2] = {0x78, 0x01};
    if (fwrite("\x89PNG\r\n\x1a\n", 1, 8, file) != 8 || !WriteChunk("IHDR", header, sizeof header)) return false;
    if (!WriteChunk("IDAT", zlibHeader, sizeof zlibHeader)) return false;

    // Pack some bands at once and write them in order, so that the memory in use doesn't grow with the picture.
    const uint32_t bandCount = (image.height + bandRows - 1) / bandRows;
    uLong checksum = adler32(0, nullptr, 0);
    for (uint32_t first = 0; first < bandCount; first += bandsAtOnce) {
        std::vector<Band> bands(std::min(bandsAtOnce, bandCount - first));
        const auto pack = [&](int begin, int end) {
            for (int i = begin; i < end; i++) PackBand(first + uint32_t(i), bands[size_t(i)]);
        };
        if (bands.size() == 1 || QLM_IsInsideCrunch()) pack(0, int(bands.size()));
        else
            QLM_ThreadCrunch(
                int64_t(bands.size()), [&](const ThreadCrunchRange& range) { pack(range.start, range.end); },
                "PackPNGBands");
        for (const Band& band : bands) {
            if (!WriteChunk("IDAT", band.packed.data(), band.packed.size())) return false;
            checksum = adler32_combine(checksum, band.checksum, z_off_t(band.rawBytes));
        }
    }
    uint8_t trailer[4];
    PutBigEndian(trailer, uint32_t(checksum));
    return WriteChunk("IDAT", trailer, sizeof trailer) && WriteChunk("IEND", nullptr, 0);
}

} // namespace

bool QLM_ReadPNG(QLM_ImageSource& source, QLM_ImageSink* sink) {
    Reader reader(source);
    return reader.ReadHeader() && (!sink || reader.ReadRows(*sink));
}

bool QLM_WritePNG(FILE* file, const QLM_ImageRows& image) { return Writer(file, image).Write(); }
