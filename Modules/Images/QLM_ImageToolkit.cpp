#include "Images/QLM_ImageFormats.h"

#include "Core/Logging/QLM_Logger.h"

#include <wx/app.h>
#include <wx/image.h>
#include <wx/init.h>
#include <wx/log.h>
#include <wx/mstream.h>

#include <cstring>
#include <mutex>
#include <vector>

namespace {

/// A byte buffer whose reads beyond the end give 0.
struct Bytes {
    std::vector<uint8_t> data;
    uint32_t At(size_t i) const { return i < data.size() ? data[i] : 0; }
    uint32_t Two(size_t i) const { return At(i) | At(i + 1) << 8; }
    uint32_t Four(size_t i) const { return Two(i) | Two(i + 2) << 16; }
};

/// The toolkit's readers trust the file: they index palettes and rows by whatever it says. So each format is walked
/// through here first, and only a file that holds all its picture goes on. Each answers the format's number in the
/// toolkit, or none with the source's reason set.
class Checker {
  public:
    Checker(Bytes& bytesIn, QLM_ImageSource& sourceIn) : bytes(bytesIn), source(sourceIn) {}

    wxBitmapType Check() {
        if (bytes.At(0) == 'B' && bytes.At(1) == 'M') return Accept(CheckBMP(), wxBITMAP_TYPE_BMP);
        if (bytes.At(0) == 'P' && (bytes.At(1) == '5' || bytes.At(1) == '6') && isspace(int(bytes.At(2))))
            return Accept(CheckPNM(), wxBITMAP_TYPE_PNM);
        if (LooksLikeTGA()) return Accept(CheckTGA(), wxBITMAP_TYPE_TGA);
        source.info.kind = QLM_ImageInfo::Kind::Unknown;
        source.Fail("it is no picture of a known format");
        return wxBITMAP_TYPE_INVALID;
    }

  private:
    static wxBitmapType Accept(bool good, wxBitmapType type) { return good ? type : wxBITMAP_TYPE_INVALID; }
    bool CheckBMP();
    bool CheckPNM();
    bool LooksLikeTGA() const;
    bool CheckTGA();
    bool Indices(size_t at, size_t count, uint32_t bits, uint32_t colors) const;
    bool FailDamaged() { return source.Fail(QLM_ImageText_Damaged); }

    Bytes& bytes;
    QLM_ImageSource& source;
};

/// True when `count` palette indices from byte `at` on, `bits` each, all name one of the colours.
bool Checker::Indices(size_t at, size_t count, uint32_t bits, uint32_t colors) const {
    for (size_t i = 0; i < count; i++) {
        const size_t bit = i * bits;
        if (((bytes.At(at + bit / 8) >> (8 - bits - bit % 8)) & ((1u << bits) - 1)) >= colors) return false;
    }
    return true;
}

bool Checker::CheckBMP() {
    QLM_ImageInfo& info = source.info;
    const auto magnitude = [](uint32_t value) { return int32_t(value) < 0 ? 0u - value : value; };
    const uint32_t headerSize = bytes.Four(14), bits = bytes.Two(28), packing = bytes.Four(30), first = bytes.Four(10);
    info.width = magnitude(bytes.Four(18));
    info.height = magnitude(bytes.Four(22));
    info.hasAlpha = bits == 32;
    const bool paletted = bits == 1 || bits == 4 || bits == 8;
    if (headerSize < 40 || (!paletted && bits != 16 && bits != 24 && bits != 32))
        return source.Fail("its kind of pixels is not known");
    if (packing != 0 && !(packing == 3 && (bits == 16 || bits == 32)))
        return source.Fail("its compression is not known");
    const size_t stride = (size_t(info.width) * bits + 31) / 32 * 4;
    if (!source.CheckSize(stride * 8, 1)) return false;

    // The last row may lack the bytes that fill it up to four.
    const uint32_t colors = !paletted ? 0 : bytes.Four(46) == 0 ? 1u << bits : bytes.Four(46);
    const uint64_t dataSize = uint64_t(stride) * (info.height - 1) + (size_t(info.width) * bits + 7) / 8;
    const uint64_t tables = packing == 3 && headerSize == 40 ? 12 : uint64_t(colors) * 4;
    if (colors > 256 || first < 14 + uint64_t(headerSize) + tables || first + dataSize > bytes.data.size())
        return FailDamaged();
    for (size_t y = 0; paletted && y < info.height; y++)
        if (!Indices(first + y * stride, info.width, bits, colors)) return FailDamaged();
    return true;
}

/// Grey and colour with binary samples of a byte. The header is written anew, as the toolkit would read blanks and
/// comments in its own way.
bool Checker::CheckPNM() {
    const bool color = bytes.At(1) == '6';
    size_t at = 2;
    const auto number = [&] {
        while (isspace(int(bytes.At(at))) || bytes.At(at) == '#') {
            if (bytes.At(at) == '#')
                while (at < bytes.data.size() && bytes.At(at) != '\n') at++;
            else at++;
        }
        uint32_t value = 0;
        for (; isdigit(int(bytes.At(at))) && value < 1'000'000; at++) value = value * 10 + bytes.At(at) - '0';
        return value;
    };
    source.info.width = number();
    source.info.height = number();
    const uint32_t largest = number();
    if (largest != 255) return source.Fail("its samples are not of 8 bits");
    at++; // one blank ends the header
    const uint64_t rowBytes = uint64_t(source.info.width) * (color ? 3 : 1);
    if (!source.CheckSize(rowBytes * 8, 1)) return false;
    if (at + rowBytes * source.info.height > bytes.data.size()) return source.Fail(QLM_ImageText_Truncated);
    const std::string header = std::string(color ? "P6\n" : "P5\n") + std::to_string(source.info.width) + " " +
                               std::to_string(source.info.height) + "\n255\n";
    bytes.data.erase(bytes.data.begin(), bytes.data.begin() + ptrdiff_t(at));
    bytes.data.insert(bytes.data.begin(), header.begin(), header.end());
    return true;
}

/// The format has no signature: its header must make sense in every field.
bool Checker::LooksLikeTGA() const {
    const uint32_t mapType = bytes.At(1), type = bytes.At(2) & ~8u, bits = bytes.At(16);
    if (bytes.data.size() < 18 || bytes.At(2) > 11) return false;
    switch (type) {
    case 1:
        return mapType == 1 && bits == 8 && bytes.Two(3) == 0 && bytes.At(7) == 24;
    case 2:
        return mapType == 0 && (bits == 16 || bits == 24 || bits == 32);
    case 3:
        return mapType == 0 && bits == 8;
    default:
        return false;
    }
}

bool Checker::CheckTGA() {
    constexpr uint64_t runRatio = 128;
    const bool packed = bytes.At(2) >= 9, paletted = bytes.At(1) == 1;
    const size_t pixelBytes = bytes.At(16) / 8;
    const uint32_t colors = paletted ? bytes.Two(5) : 0;
    source.info.width = bytes.Two(12);
    source.info.height = bytes.Two(14);
    source.info.hasAlpha = pixelBytes == 2 || pixelBytes == 4;
    if (!source.CheckSize(source.info.width * pixelBytes * 8, packed ? runRatio : 1)) return false;
    // The toolkit takes the place on a screen off the size.
    for (size_t i = 8; i < 12; i++) bytes.data[i] = 0;

    const uint64_t count = uint64_t(source.info.width) * source.info.height;
    size_t at = 18 + bytes.At(0) + size_t(colors) * 3;
    if (!packed && at + count * pixelBytes > bytes.data.size()) return source.Fail(QLM_ImageText_Truncated);
    if (!packed) return !paletted || Indices(at, count, 8, colors) || FailDamaged();
    for (uint64_t done = 0; done < count;) {
        const uint32_t packet = bytes.At(at++), length = (packet & 127) + 1;
        const size_t stored = packet & 128 ? 1 : length;
        if (at + stored * pixelBytes > bytes.data.size()) return source.Fail(QLM_ImageText_Truncated);
        if (paletted && !Indices(at, stored, 8, colors)) return FailDamaged();
        at += stored * pixelBytes;
        done += length;
        if (done > count) return FailDamaged();
    }
    return true;
}

/// The toolkit's handlers share tables and its log switch, so one picture passes at a time.
std::mutex& ToolkitMutex() {
    static std::mutex mutex;
    return mutex;
}

void HandRowsOver(const wxImage& image, QLM_ImageSource& source, QLM_ImageSink& sink, bool transparent) {
    const size_t width = size_t(image.GetWidth()), channels = transparent ? 4 : 3;
    const uint8_t *color = image.GetData(), *alpha = image.GetAlpha();
    const uint8_t key[3] = {image.GetMaskRed(), image.GetMaskGreen(), image.GetMaskBlue()};
    std::vector<uint8_t> row(width * channels);
    for (uint32_t y = 0; y < uint32_t(image.GetHeight()); y++) {
        for (size_t x = 0; x < width; x++, color += 3) {
            uint8_t* pixel = row.data() + x * channels;
            memcpy(pixel, color, 3);
            if (alpha) pixel[3] = *alpha++;
            else if (transparent) pixel[3] = memcmp(color, key, 3) == 0 ? 0 : 255;
        }
        sink.SetRow(y, row.data());
    }
    source.hasMaskColor = transparent && !image.HasAlpha();
}

wxBitmapType TypeOfExtension(const std::string& extension) {
    if (extension == "bmp") return wxBITMAP_TYPE_BMP;
    if (extension == "tga") return wxBITMAP_TYPE_TGA;
    return extension == "pnm" || extension == "ppm" ? wxBITMAP_TYPE_PNM : wxBITMAP_TYPE_INVALID;
}

} // namespace

void QLM_InitializeImageHandlers() {
    static std::once_flag once;
    std::call_once(once, [] {
        // A console application stands in for the window one, which would look for a display. It lives to the end.
        if (!wxApp::GetInstance()) {
            wxApp::SetInstance(new wxAppConsole);
            static const auto* const initializer = new wxInitializer;
            if (!initializer->IsOk()) QLM_Log("The toolkit's picture formats cannot be initialised");
        }
        wxInitAllImageHandlers();
    });
}

bool QLM_ReadWithToolkit(QLM_ImageSource& source, QLM_ImageSink* sink) {
    Bytes bytes;
    if (!source.ReadAll(bytes.data)) return false;
    const wxBitmapType type = Checker(bytes, source).Check();
    if (type == wxBITMAP_TYPE_INVALID) return false;
    if (!sink) return true;

    QLM_InitializeImageHandlers();
    const std::lock_guard<std::mutex> guard(ToolkitMutex());
    const wxLogNull silence;
    wxMemoryInputStream stream(bytes.data.data(), bytes.data.size());
    wxImage image;
    if (!image.LoadFile(stream, type) || !image.IsOk()) return source.Fail(QLM_ImageText_Damaged);
    source.info.width = uint32_t(image.GetWidth());
    source.info.height = uint32_t(image.GetHeight());
    const bool transparent = image.HasAlpha() || image.HasMask();
    source.info.hasAlpha = transparent;
    if (!sink->Begin(source.info.width, source.info.height, transparent ? 4 : 3))
        return source.Fail(QLM_ImageText_NoMemory);
    HandRowsOver(image, source, *sink, transparent);
    return true;
}

bool QLM_WriteWithToolkit(FILE* file, const std::string& extension, const QLM_ImageRows& rows) {
    QLM_InitializeImageHandlers();
    const std::lock_guard<std::mutex> guard(ToolkitMutex());
    const wxLogNull silence;
    wxImage image;
    if (!image.Create(int(rows.width), int(rows.height), false)) return false;
    if (rows.channels == 4) image.SetAlpha();
    uint8_t *color = image.GetData(), *alpha = image.GetAlpha();
    std::vector<uint8_t> row(rows.RowBytes());
    for (uint32_t y = 0; y < rows.height; y++) {
        rows.Get(y, row.data());
        const uint8_t* pixel = row.data();
        for (size_t x = 0; x < rows.width; x++, pixel += rows.channels, color += 3) {
            memcpy(color, pixel, 3);
            if (alpha) *alpha++ = pixel[3];
        }
    }
    wxMemoryOutputStream stream;
    if (!image.SaveFile(stream, TypeOfExtension(extension))) return false;
    const wxStreamBuffer* buffer = stream.GetOutputStreamBuffer();
    const size_t count = buffer->GetIntPosition();
    return fwrite(buffer->GetBufferStart(), 1, count, file) == count;
}
