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

/// The toolkit's handlers share tables and its log switch, so one picture passes at a time.
std::mutex& ToolkitMutex() {
    static std::mutex mutex;
    return mutex;
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
