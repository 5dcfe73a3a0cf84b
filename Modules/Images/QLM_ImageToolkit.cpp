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
    bool StartsWith(const char* text) const {
        return data.size() >= strlen(text) && memcmp(data.data(), text, strlen(text)) == 0;
    }
};

/// What a header tells: the format's number in the toolkit and how tightly its data can be packed.
struct Header {
    wxBitmapType type = wxBITMAP_TYPE_INVALID;
    uint64_t rowBits = 0, ratio = 1;
};

uint32_t Magnitude(uint32_t bits) { return int32_t(bits) < 0 ? 0u - bits : bits; }

Header ReadBMP(const Bytes& bytes, QLM_ImageInfo& info) {
    const bool old = bytes.Four(14) == 12;
    info.width = old ? bytes.Two(18) : Magnitude(bytes.Four(18));
    info.height = old ? bytes.Two(20) : Magnitude(bytes.Four(22));
    const uint32_t bits = old ? bytes.Two(24) : bytes.Two(28), packing = old ? 0 : bytes.Four(30);
    info.hasAlpha = bits == 32;
    const bool runs = packing == 1 || packing == 2;
    return {wxBITMAP_TYPE_BMP, uint64_t(info.width) * bits, runs ? 256u : 1u};
}

Header ReadPCX(const Bytes& bytes, QLM_ImageInfo& info) {
    info.width = bytes.Two(8) - bytes.Two(4) + 1;
    info.height = bytes.Two(10) - bytes.Two(6) + 1;
    return {wxBITMAP_TYPE_PCX, uint64_t(info.width) * bytes.At(3) * bytes.At(65), 64};
}

Header ReadPNM(const Bytes& bytes, QLM_ImageInfo& info) {
    const uint32_t kind = bytes.At(1) - '0';
    size_t at = 2;
    const auto number = [&] {
        for (;; at++) {
            if (bytes.At(at) == '#') while (at < bytes.data.size() && bytes.At(at) != '\n') at++;
            else if (!isspace(int(bytes.At(at)))) break;
        }
        uint32_t value = 0;
        for (; isdigit(int(bytes.At(at))) && value < 1'000'000; at++) value = value * 10 + bytes.At(at) - '0';
        return value;
    };
    info.width = number();
    info.height = number();
    // The toolkit divides by the largest sample, and knows none above a byte.
    if (kind % 3 != 1 && (number() - 1) > 254) return {};
    const uint64_t samples = uint64_t(info.width) * (kind % 3 == 0 ? 3 : 1);
    return {wxBITMAP_TYPE_PNM, kind == 4 ? samples : samples * 8, 1};
}

Header ReadXPM(const Bytes& bytes, QLM_ImageInfo& info) {
    const std::string text(bytes.data.begin(), bytes.data.end());
    const size_t quote = text.find('"');
    if (quote == std::string::npos) return {};
    sscanf(text.c_str() + quote + 1, "%9u %9u", &info.width, &info.height);
    return {wxBITMAP_TYPE_XPM, uint64_t(info.width) * 8, 1};
}

/// The format has no signature: its header must make sense in every field.
bool LooksLikeTGA(const Bytes& bytes) {
    const uint32_t type = bytes.At(2), bits = bytes.At(16), mapType = bytes.At(1);
    const bool known = type == 1 || type == 2 || type == 3 || type == 9 || type == 10 || type == 11;
    const bool palette = type == 1 || type == 9;
    const bool grey = type == 3 || type == 11;
    if (!known || bytes.data.size() < 18 || mapType > 1 || (palette && mapType != 1)) return false;
    return palette ? bits == 8 : grey ? bits == 8 || bits == 16 : bits == 16 || bits == 24 || bits == 32;
}

Header ReadTGA(const Bytes& bytes, QLM_ImageInfo& info) {
    info.width = bytes.Two(12);
    info.height = bytes.Two(14);
    info.hasAlpha = bytes.At(16) == 32;
    return {wxBITMAP_TYPE_TGA, uint64_t(info.width) * bytes.At(16), bytes.At(2) >= 9 ? 128u : 1u};
}

Header ReadHeader(const Bytes& bytes, QLM_ImageInfo& info) {
    if (bytes.StartsWith("BM")) return ReadBMP(bytes, info);
    if (bytes.StartsWith("/* XPM */")) return ReadXPM(bytes, info);
    if (bytes.At(0) == 'P' && bytes.At(1) >= '1' && bytes.At(1) <= '6' && isspace(int(bytes.At(2))))
        return ReadPNM(bytes, info);
    if (bytes.At(0) == 10 && bytes.At(1) <= 5 && bytes.At(2) <= 1) return ReadPCX(bytes, info);
    if (LooksLikeTGA(bytes)) return ReadTGA(bytes, info);
    return {};
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
    if (extension == "pcx") return wxBITMAP_TYPE_PCX;
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
    const Header header = ReadHeader(bytes, source.info);
    if (header.type == wxBITMAP_TYPE_INVALID) {
        source.info.kind = QLM_ImageInfo::Kind::Unknown;
        return source.Fail("it is no picture of a known format");
    }
    if (!source.CheckSize(header.rowBits, header.ratio)) return false;
    if (!sink) return true;

    QLM_InitializeImageHandlers();
    const std::lock_guard<std::mutex> guard(ToolkitMutex());
    const wxLogNull silence;
    wxMemoryInputStream stream(bytes.data.data(), bytes.data.size());
    wxImage image;
    if (!image.LoadFile(stream, header.type) || !image.IsOk()) return source.Fail(QLM_ImageText_Damaged);
    source.info.width = uint32_t(image.GetWidth());
    source.info.height = uint32_t(image.GetHeight());
    const bool transparent = image.HasAlpha() || image.HasMask();
    source.info.hasAlpha = transparent;
    if (!sink->Begin(source.info.width, source.info.height, transparent ? 4 : 3))
        return source.Fail(QLM_ImageText_NoMemory);
    HandRowsOver(image, source, *sink, transparent);
    return true;
}

bool QLM_WriteWithToolkit(FILE* file, const std::string& extension, const uint8_t* pixels, uint32_t width,
                          uint32_t height, int channels) {
    QLM_InitializeImageHandlers();
    const std::lock_guard<std::mutex> guard(ToolkitMutex());
    const wxLogNull silence;
    wxImage image;
    if (!image.Create(int(width), int(height), false)) return false;
    if (channels == 4) image.SetAlpha();
    uint8_t *color = image.GetData(), *alpha = image.GetAlpha();
    for (uint32_t y = height; y-- > 0;) {
        const uint8_t* row = pixels + size_t(y) * width * size_t(channels);
        for (size_t x = 0; x < width; x++, row += channels, color += 3) {
            memcpy(color, row, 3);
            if (alpha) *alpha++ = row[3];
        }
    }
    wxMemoryOutputStream stream;
    if (!image.SaveFile(stream, TypeOfExtension(extension))) return false;
    const wxStreamBuffer* buffer = stream.GetOutputStreamBuffer();
    const size_t count = buffer->GetIntPosition();
    return fwrite(buffer->GetBufferStart(), 1, count, file) == count;
}
