#include "Interface/QLM_WX_ColorThemes.h"

#include <wx/settings.h>
#include <wx/window.h>

namespace QLM::GUI {

namespace {

/// The share of `a`, the rest of `b`.
wxColour Blend(const wxColour& a, const wxColour& b, double share) {
    const auto mix = [share](int x, int y) { return static_cast<unsigned char>(x * share + y * (1.0 - share) + 0.5); };
    return {mix(a.Red(), b.Red()), mix(a.Green(), b.Green()), mix(a.Blue(), b.Blue())};
}

void Apply(wxWindow* window, const wxColour& foreground, const wxColour& background) {
    window->SetForegroundColour(foreground);
    window->SetBackgroundColour(background);
}

} // namespace

std::array<ColorTheme, ColorThemeCount> MakeColorThemes() {
    const auto system = [](wxSystemColour which) { return wxSystemSettings::GetColour(which); };
    const wxColour text = system(wxSYS_COLOUR_WINDOWTEXT), face = system(wxSYS_COLOUR_BTNFACE),
                   window = system(wxSYS_COLOUR_WINDOW), caption = system(wxSYS_COLOUR_CAPTIONTEXT),
                   gradient = system(wxSYS_COLOUR_GRADIENTACTIVECAPTION);
    const wxColour black(0, 0, 0), white(255, 255, 255);
    return {{
        {text, face, text, window, caption, Blend(gradient, face, 0.5), Blend(window, face, 0.7), window},
        {black, {235, 235, 255}, text, white, black, {200, 200, 255}, white, {220, 220, 230}},
        {black, {160, 160, 170}, text, {210, 210, 220}, black, {140, 140, 170}, {220, 220, 240}, {200, 200, 210}},
        {white, {90, 90, 100}, text, {190, 190, 200}, white, {70, 70, 90}, {180, 180, 190}, {140, 140, 160}},
        {white, {50, 50, 50}, text, {90, 90, 90}, white, {30, 30, 30}, {40, 40, 40}, {20, 20, 20}},
    }};
}

void ApplyPanelColors(wxWindow* window, const ColorTheme& theme) { Apply(window, theme[0], theme[1]); }
void ApplyControlColors(wxWindow* window, const ColorTheme& theme) { Apply(window, theme[2], theme[3]); }
void ApplyHighlightColors(wxWindow* window, const ColorTheme& theme) { Apply(window, theme[4], theme[5]); }

} // namespace QLM::GUI
