#pragma once
// The colour themes of the windows.

#include <wx/colour.h>

#include <array>

class wxWindow;

namespace QLM::GUI {

constexpr unsigned ColorThemeCount = 5;
constexpr unsigned DefaultColorTheme = 3;

/// Pairs of foreground and background: panels, edit fields, highlights, viewport backgrounds.
using ColorTheme = std::array<wxColour, 8>;

/// Native OS Colors, Light, Medium, Dark, Darkest. Main thread, with the toolkit started.
std::array<ColorTheme, ColorThemeCount> MakeColorThemes();

void ApplyPanelColors(wxWindow* window, const ColorTheme& theme);
void ApplyControlColors(wxWindow* window, const ColorTheme& theme);
void ApplyHighlightColors(wxWindow* window, const ColorTheme& theme);

} // namespace QLM::GUI
