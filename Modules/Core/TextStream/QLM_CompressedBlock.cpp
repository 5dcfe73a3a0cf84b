#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/TextStream/QLM_TextStream.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <zlib.h>

namespace {

constexpr int CompressionLevel = 1;
constexpr int DetectHeader = 15 + 32;          // window of 32 KiB, zlib or gzip header
constexpr int64_t LargestInflation = 1100;     // deflate can't expand a byte to more than 1032
constexpr int64_t SmallestPlausibleRaw = 4096; // slack for the stream's own header and trailer

struct FreeBlock {
    void operator()(void* block) const { QLM_Free(block); }
};
using Block = std::unique_ptr<uint8_t, FreeBlock>;

/// The sizes announced in a block's head; -1 where a line is missing.
struct BlockSizes {
    int64_t raw = -1;
    int64_t compressed = -1;

    void Consider(const std::string& key, const std::string& value) {
        if (QLM_CompareNoCase(key, "rawDataSize") == 0) raw = std::strtoll(value.c_str(), nullptr, 10);
        else if (QLM_CompareNoCase(key, "compressedDataSize") == 0) compressed = std::strtoll(value.c_str(), nullptr, 10);
    }
    /// Bytes that lie in the file.
    int64_t Stored() const { return compressed >= 0 ? compressed : raw; }
};

bool ReadSplitLine(FILE* stream, std::string& key, std::string& value) {
    std::string line;
    if (!QLM_ReadLine(line, QLM_TextStreamLineLimit, stream)) return false;
    QLM_SplitKeyValue(line, key, value);
    return true;
}

/// Goes behind the line whose first word is `word`.
bool ScanBehind(FILE* stream, const char* word) {
    std::string key, value;
    while (ReadSplitLine(stream, key, value))
        if (key == word) return true;
    return false;
}

/// Passes the data behind "DATA_BEGIN" up to and with "DATA_END". A size that can't be true is not trusted: the end
/// line is then searched from where the data began.
bool LeapOverData(FILE* stream, int64_t size) {
    if (size > 0 && size <= QLM_BytesLeft(stream)) fseeko(stream, size, SEEK_CUR);
    return ScanBehind(stream, "DATA_END");
}

/// Reads the head up to "DATA_BEGIN"; false at a "}" or at the file's end.
bool ReadBlockHead(FILE* stream, BlockSizes& sizes) {
    std::string key, value;
    if (!ScanBehind(stream, "{")) return false;
    while (ReadSplitLine(stream, key, value)) {
        if (key == "}") return false;
        if (key == "DATA_BEGIN") return true;
        sizes.Consider(key, value);
    }
    return false;
}

bool AreSizesPlausible(const BlockSizes& sizes, int64_t expectedSize, int64_t bytesLeft) {
    if (sizes.raw < 0 || (expectedSize >= 0 && sizes.raw != expectedSize)) return false;
    if (sizes.Stored() > bytesLeft) return false;
    return sizes.compressed < 0 || sizes.raw <= sizes.compressed * LargestInflation + SmallestPlausibleRaw;
}

/// Inflates to exactly out.size() bytes.
bool Inflate(const uint8_t* source, size_t sourceSize, std::vector<uint8_t>& out) {
    constexpr size_t Largest = std::numeric_limits<uInt>::max();
    z_stream z{};
    if (inflateInit2(&z, DetectHeader) != Z_OK) return false;
    uint8_t beyond = 0; // takes what a stream holds beyond the announced size
    size_t read = 0, written = 0;
    int status = Z_OK;
    while (status == Z_OK) {
        const size_t input = std::min(sourceSize - read, Largest);
        const size_t room = std::min(out.size() - written, Largest);
        z.next_in = const_cast<Bytef*>(source + read);
        z.avail_in = static_cast<uInt>(input);
        z.next_out = room ? out.data() + written : &beyond;
        z.avail_out = room ? static_cast<uInt>(room) : 1;
        const uInt offered = z.avail_out;
        status = inflate(&z, Z_NO_FLUSH);
        read += input - z.avail_in;
        const size_t produced = offered - z.avail_out;
        if (!room && produced) {
            status = Z_DATA_ERROR;
            break;
        }
        written += produced;
    }
    inflateEnd(&z);
    return status == Z_STREAM_END && written == out.size();
}

} // namespace

int64_t QLM_BytesLeft(FILE* stream) {
    const int64_t here = ftello(stream);
    if (here < 0 || fseeko(stream, 0, SEEK_END) != 0) return 0;
    const int64_t end = ftello(stream);
    fseeko(stream, here, SEEK_SET);
    return std::max<int64_t>(end - here, 0);
}

bool QLM_SkipTextBlock(FILE* stream) {
    int depth = 1;
    BlockSizes sizes;
    std::string key, value;
    while (depth > 0) {
        if (!ReadSplitLine(stream, key, value)) return false;
        if (key == "DATA_BEGIN") {
            if (!LeapOverData(stream, sizes.Stored())) return false;
            sizes = {};
        } else if (key == "{") {
            ++depth;
            sizes = {};
        } else if (key == "}") {
            --depth;
        } else {
            sizes.Consider(key, value);
        }
    }
    return true;
}

void QLM_WriteCompressedBlock(FILE* stream, const char* name, const void* data, size_t size) {
    uLongf compressedSize = compressBound(size);
    const Block compressed(static_cast<uint8_t*>(QLM_Malloc(compressedSize, false)));
    const Bytef nothing = 0;
    const Bytef* source = size ? static_cast<const Bytef*>(data) : &nothing;
    if (compress2(compressed.get(), &compressedSize, source, size, CompressionLevel) != Z_OK)
        QLM_RaiseError("Cannot compress the block %s of %u bytes", name, size);

    const TStartTextFileBlock block(name, "", stream);
    QLM_WriteInt(stream, "rawDataSize", static_cast<int64_t>(size));
    QLM_WriteInt(stream, "compressedDataSize", static_cast<int64_t>(compressedSize));
    std::fputs("DATA_BEGIN\n", stream);
    std::fwrite(compressed.get(), 1, compressedSize, stream);
    std::fputs("\nDATA_END\n", stream);
}

bool QLM_ReadCompressedBlock(FILE* stream, std::vector<uint8_t>& out, int64_t expectedSize) {
    out.clear();
    BlockSizes sizes;
    if (!ReadBlockHead(stream, sizes)) return false;

    // Decide before memory is taken; a block that is refused is passed over.
    if (!AreSizesPlausible(sizes, expectedSize, QLM_BytesLeft(stream))) {
        if (LeapOverData(stream, sizes.Stored())) ScanBehind(stream, "}");
        return false;
    }

    // Read the stored bytes at once, then go behind the block.
    std::vector<uint8_t> stored(static_cast<size_t>(sizes.Stored()));
    const bool complete = std::fread(stored.data(), 1, stored.size(), stream) == stored.size();
    const bool closed = complete && ScanBehind(stream, "DATA_END") && ScanBehind(stream, "}");
    if (!closed) return false;
    if (sizes.compressed < 0) {
        out = std::move(stored);
        return true;
    }
    out.resize(static_cast<size_t>(sizes.raw));
    if (Inflate(stored.data(), stored.size(), out)) return true;
    out.clear();
    return false;
}
