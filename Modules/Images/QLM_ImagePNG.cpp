#include "Images/QLM_ImageFormats.h"

#include "Core/Threads/QLM_ThreadCruncher.h"

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
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
    bool good = false;
};

/// The sum of the residuals' absolute values: the usual guess at how well a filtered row packs.
uint32_t Cost(const uint8_t* row, size_t count) {
    uint32_t sum = 0;
    for (size_t i = 0; i < count; i++) sum += uint32_t(std::abs(int8_t(row[i])));
    return sum;
}

class Writer {
  public:
    Writer(FILE* fileIn, const uint8_t* pixelsIn, uint32_t widthIn, uint32_t heightIn, int channelsIn)
        : file(fileIn), pixels(pixelsIn), width(widthIn), height(heightIn), channels(channelsIn),
          rowBytes(size_t(widthIn) * channelsIn),
          bandRows(uint32_t(std::clamp<size_t>(bandBytes / (rowBytes + 1), 1, heightIn))) {}

    bool Write();

  private:
    const uint8_t* Row(uint32_t fromTop) const { return pixels + size_t(height - 1 - fromTop) * rowBytes; }
    void FilterRow(uint32_t fromTop, uint8_t* out, std::vector<uint8_t>& scratch) const;
    void PackBand(uint32_t index, Band& band) const;
    bool WriteChunk(const char* type, const uint8_t* bytes, size_t count) const;

    FILE* const file;
    const uint8_t* const pixels;
    const uint32_t width, height;
    const int channels;
    const size_t rowBytes;
    const uint32_t bandRows;
};

/// Writes the filter's number and the filtered row: Sub or Up, whichever seems to pack better; the top row always Sub.
void Writer::FilterRow(uint32_t fromTop, uint8_t* out, std::vector<uint8_t>& scratch) const {
    const uint8_t* row = Row(fromTop);
    uint8_t* sub = out + 1;
    out[0] = 1;
    memcpy(sub, row, size_t(channels));
    for (size_t i = size_t(channels); i < rowBytes; i++) sub[i] = uint8_t(row[i] - row[i - channels]);
    if (fromTop == 0) return;

    const uint8_t* above = Row(fromTop - 1);
    uint8_t* up = scratch.data();
    for (size_t i = 0; i < rowBytes; i++) up[i] = uint8_t(row[i] - above[i]);
    if (Cost(up, rowBytes) <= Cost(sub, rowBytes)) {
        out[0] = 2;
        memcpy(sub, up, rowBytes);
    }
}

void Writer::PackBand(uint32_t index, Band& band) const {
    const uint32_t first = index * bandRows, last = std::min(first + bandRows, height);
    std::vector<uint8_t> raw((rowBytes + 1) * (last - first)), scratch(rowBytes);
    for (uint32_t y = first; y < last; y++) FilterRow(y, raw.data() + (rowBytes + 1) * (y - first), scratch);
    band.rawBytes = raw.size();
    band.checksum = adler32_z(adler32(0, nullptr, 0), raw.data(), raw.size());

    z_stream stream = {};
    if (deflateInit2(&stream, 1, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY) != Z_OK) return;
    band.packed.resize(deflateBound(&stream, uLong(raw.size())) + 16);
    stream.next_in = raw.data();
    stream.avail_in = uInt(raw.size());
    stream.next_out = band.packed.data();
    stream.avail_out = uInt(band.packed.size());
    const bool isLast = last == height;
    const int result = deflate(&stream, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    band.good = result == (isLast ? Z_STREAM_END : Z_OK) && stream.avail_in == 0 && stream.avail_out > 0;
    band.packed.resize(band.packed.size() - stream.avail_out);
    deflateEnd(&stream);
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
    PutBigEndian(header, width);
    PutBigEndian(header + 4, height);
    header[8] = 8;
    header[9] = channels == 4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB;
    const uint8_t zlibHeader[2] = {0x78, 0x01};
    if (fwrite("\x89PNG\r\n\x1a\n", 1, 8, file) != 8 || !WriteChunk("IHDR", header, sizeof header)) return false;
    if (!WriteChunk("IDAT", zlibHeader, sizeof zlibHeader)) return false;

    // Pack some bands at once and write them in order, so that the memory in use doesn't grow with the picture.
    const uint32_t bandCount = (height + bandRows - 1) / bandRows;
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
            if (!band.good || !WriteChunk("IDAT", band.packed.data(), band.packed.size())) return false;
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

bool QLM_WritePNG(FILE* file, const uint8_t* pixels, uint32_t width, uint32_t height, int channels) {
    return Writer(file, pixels, width, height, channels).Write();
}
