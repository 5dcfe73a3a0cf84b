#pragma once
// Text between the engine (UTF-8) and the toolkit. The locale is "C", so no other conversion keeps what isn't ASCII.

#include <wx/string.h>

#include <string>

namespace QLM::GUI {

/// Bytes that are no UTF-8 (names of old files) are shown letter by letter rather than not at all.
inline wxString ToToolkit(const std::string& text) {
    const wxString converted = wxString::FromUTF8(text.data(), text.size());
    return converted.empty() && !text.empty() ? wxString(text.data(), wxConvISO8859_1, text.size()) : converted;
}
inline std::string FromToolkit(const wxString& text) { return std::string(text.utf8_str()); }
/// A path as the file system has it, byte by byte.
inline std::string PathFromToolkit(const wxString& path) { return std::string(path.fn_str()); }

} // namespace QLM::GUI
