#include "Tools/QLM_BrushShapeManager.h"

#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Rendering/QLM_Viewport.h"
#include "Tools/QLM_Tool.h"

#include <cmath>

namespace {

constexpr uint8_t OutlineThreshold = 2;

/// Bilinear sample of a grey picture at pixel-centre coordinates, clamped. Constant areas stay exact.
uint8_t SampleGrey(const uint8_t* pixels, int width, int height, float x, float y) {
    x = std::clamp(x, 0.0f, static_cast<float>(width - 1));
    y = std::clamp(y, 0.0f, static_cast<float>(height - 1));
    const int x0 = static_cast<int>(x), y0 = static_cast<int>(y);
    const int x1 = std::min(x0 + 1, width - 1), y1 = std::min(y0 + 1, height - 1);
    const float tx = x - static_cast<float>(x0), ty = y - static_cast<float>(y0);
    const uint8_t* lower = pixels + static_cast<size_t>(y0) * width;
    const uint8_t* upper = pixels + static_cast<size_t>(y1) * width;
    const float a = lower[x0] + (static_cast<float>(lower[x1]) - lower[x0]) * tx;
    const float b = upper[x0] + (static_cast<float>(upper[x1]) - upper[x0]) * tx;
    return static_cast<uint8_t>(a + (b - a) * ty);
}

int HardnessFactor(float hardness) {
    const float h2 = hardness * hardness;
    return static_cast<int>(255.0f * (h2 * h2 * h2));
}

uint8_t Harden(int value, int factor) { return static_cast<uint8_t>(std::min(255, value * (factor + 1))); }

/// The angle in radians; whole turns are no turn.
float Radians(float degrees) {
    return static_cast<float>(std::fmod(static_cast<double>(degrees), 360.0) * 3.1415926535898 / 180.0);
}

int RoundToSide(float length) { return std::max(1, static_cast<int>(std::lround(length))); }

/// Extent of the shape on both axes, the longer being 1.
void ShapeExtent(const QLM_ImageMap& shape, float& x, float& y) {
    const float longest = static_cast<float>(std::max(shape.GetWidth(), shape.GetHeight()));
    x = longest > 0 ? static_cast<float>(shape.GetWidth()) / longest : 1.0f;
    y = longest > 0 ? static_cast<float>(shape.GetHeight()) / longest : 1.0f;
}

/// `out` := the shape scaled so that its longer side has `side` pixels, after hardness.
void BuildHardShape(QLM_ImageMap& source, QLM_ImageMap& out, int side, float hardness) {
    float extentX, extentY;
    ShapeExtent(source, extentX, extentY);
    const int width = RoundToSide(static_cast<float>(side) * extentX),
              height = RoundToSide(static_cast<float>(side) * extentY);
    const int sourceWidth = static_cast<int>(source.GetWidth()), sourceHeight = static_cast<int>(source.GetHeight());
    const float scaleX = static_cast<float>(sourceWidth) / static_cast<float>(width);
    const float scaleY = static_cast<float>(sourceHeight) / static_cast<float>(height);
    const int factor = HardnessFactor(hardness);
    out.SetDimensions(static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1);
    const uint8_t* from = source.GetPixels();
    uint8_t* to = out.GetPixels();
    QLM_ThreadCrunch(
        height,
        [=](const ThreadCrunchRange& range) {
            for (int y = range.start; y < range.end; ++y) {
                uint8_t* row = to + static_cast<size_t>(y) * width;
                const float v = (static_cast<float>(y) + 0.5f) * scaleY - 0.5f;
                for (int x = 0; x < width; ++x)
                    row[x] = Harden(
                        SampleGrey(from, sourceWidth, sourceHeight, (static_cast<float>(x) + 0.5f) * scaleX - 0.5f, v),
                        factor);
            }
        },
        "BuildHardShape");
}

/// Draws the shape turned by `radians` into the tip; the shape fills the tip's middle 1 / `aspect`.
void BuildTurnedTip(QLM_ImageMap& shape, QLM_ImageMap& tip, int side, float radians, float aspect) {
    const int width = static_cast<int>(tip.GetWidth()), height = static_cast<int>(tip.GetHeight());
    const int shapeWidth = static_cast<int>(shape.GetWidth()), shapeHeight = static_cast<int>(shape.GetHeight());
    uint8_t* to = tip.GetPixels();
    if (width == 1 && height == 1) {
        *to = 255;
        return;
    }
    float extentX, extentY;
    ShapeExtent(shape, extentX, extentY);
    const uint8_t* from = shape.GetPixels();
    const float cosine = std::cos(radians), sine = std::sin(radians);
    const float stepX = 2.0f / static_cast<float>(side), stepY = 2.0f / static_cast<float>(side);
    const float scaleX = aspect / extentX, scaleY = aspect / extentY;
    QLM_ThreadCrunch(
        height,
        [=](const ThreadCrunchRange& range) {
            for (int y = range.start; y < range.end; ++y) {
                uint8_t* row = to + static_cast<size_t>(y) * width;
                const float py = (static_cast<float>(y) + 0.5f - static_cast<float>(height) * 0.5f) * stepY;
                for (int x = 0; x < width; ++x) {
                    const float px = (static_cast<float>(x) + 0.5f - static_cast<float>(width) * 0.5f) * stepX;
                    const float u = (px * cosine + py * sine) * scaleX, v = (py * cosine - px * sine) * scaleY;
                    const bool inside = u >= -1.0f && u <= 1.0f && v >= -1.0f && v <= 1.0f;
                    row[x] = inside ? SampleGrey(from, shapeWidth, shapeHeight,
                                                 (u + 1.0f) * 0.5f * static_cast<float>(shapeWidth) - 0.5f,
                                                 (v + 1.0f) * 0.5f * static_cast<float>(shapeHeight) - 0.5f)
                                    : 0;
                }
            }
        },
        "BuildTurnedTip");
}

/// Places, from the picture's middle, of the pixels that end the outline; 4 neighbours, off the picture is empty.
std::vector<std::pair<int32_t, int32_t>> FindOutline(const uint8_t* pixels, int width, int height) {
    std::vector<std::pair<int32_t, int32_t>> points;
    const auto empty = [&](int x, int y) {
        return x < 0 || y < 0 || x >= width || y >= height ||
               pixels[static_cast<size_t>(y) * width + x] < OutlineThreshold;
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (!empty(x, y) && (empty(x - 1, y) || empty(x + 1, y) || empty(x, y - 1) || empty(x, y + 1)))
                points.emplace_back(x - width / 2, y - height / 2);
    return points;
}

std::vector<std::pair<int32_t, int32_t>> CircleOutline(float radius) {
    std::vector<std::pair<int32_t, int32_t>> points;
    for (int i = 0; i < 360; ++i) {
        const float angle = Radians(static_cast<float>(i));
        points.emplace_back(static_cast<int32_t>(std::lround(radius * std::cos(angle))),
                            static_cast<int32_t>(std::lround(radius * std::sin(angle))));
    }
    return points;
}

} // namespace

void QLM_BrushShapeManager::Initialize() { LoadDefaultShape(); }

bool QLM_BrushShapeManager::LoadShape(const std::string& path, std::string& error) {
    if (!ShapeSource.LoadGreyFromFile(path, error)) return false;
    InvalidateTip();
    return true;
}

void QLM_BrushShapeManager::LoadDefaultShape() {
    const std::string path = QLM_FormatText("%sBrushShapes%c01-Simple%cSimple-0001.png",
                                            QLM_OS::Get().GetApplicationDirectory() + "Data/", '/', '/');
    std::string error;
    if (!LoadShape(path, error))
        QLM_ExitWithMessage(QLM_FormatText(
            "The file %s cannot be found.\n\nPlease re-install the software or manually replace it.", path));
}

void QLM_BrushShapeManager::GetTipSize(QLM_Tool* tool, int overlayWidth, int& width, int& height) const {
    const float side = static_cast<float>(overlayWidth) * tool->GetSize() * tool->GetPanelAspect();
    float extentX, extentY;
    ShapeExtent(ShapeSource, extentX, extentY);
    if (extentX != extentY) {
        // The box of the turned shape.
        const float cosine = std::fabs(std::cos(Radians(tool->GetAngle()))),
                    sine = std::fabs(std::sin(Radians(tool->GetAngle())));
        const float boxX = std::min(1.0f, extentX * cosine + extentY * sine),
                    boxY = std::min(1.0f, extentY * cosine + extentX * sine);
        extentX = boxX;
        extentY = boxY;
    }
    width = RoundToSide(side * extentX);
    height = RoundToSide(side * extentY);
}

void QLM_BrushShapeManager::SetupOverlayAndBrushShape(QLM_Viewport* viewport, QLM_Tool* tool, int overlayWidth,
                                                      int overlayHeight, int stampingWidth) {
    BrushOverlay.SetDimensions(static_cast<uint32_t>(overlayWidth), static_cast<uint32_t>(overlayHeight), 1);
    BrushOverlay.ClearToByte(0);

    const float size = tool->GetSize(), hardness = tool->GetHardness(), angle = tool->GetAngle();
    const bool isCurrent = !tipStale && size == lastSize && hardness == lastHardness && angle == lastAngle &&
                           stampingWidth == lastStampingWidth && viewport->width == lastViewportWidth;
    if (isCurrent || !ShapeSource.HasPixels()) return;

    int width, height;
    GetTipSize(tool, stampingWidth, width, height);
    const int side = RoundToSide(static_cast<float>(stampingWidth) * size * tool->GetPanelAspect());
    BuildHardShape(ShapeSource, HardShape, side, hardness);
    BrushTip.SetDimensions(static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1);
    BuildTurnedTip(HardShape, BrushTip, side, Radians(angle), tool->GetPanelAspect());

    GetTipSize(tool, viewport->width, width, height);
    ColorizeOverlay.SetDimensions(static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1);
    ColorizeOverlay.ResizeFrom(BrushTip, false);
    UpdateOutline(viewport, tool);

    lastSize = size;
    lastHardness = hardness;
    lastAngle = angle;
    lastStampingWidth = stampingWidth;
    lastViewportWidth = viewport->width;
    tipStale = false;
}

void QLM_BrushShapeManager::UpdateOutline(QLM_Viewport* viewport, QLM_Tool* tool) {
    const float size = tool->GetSize(), hardness = tool->GetHardness(), angle = tool->GetAngle();
    if (!outlineStale && size == outlineSize && hardness == outlineHardness && angle == outlineAngle &&
        viewport->width == outlineViewportWidth)
        return;
    OutlinePoints.clear();
    if (ShapeSource.HasPixels()) {
        // The stamping tip is many times as large; the outline needs only the pixels of the screen.
        int width, height;
        GetTipSize(tool, viewport->width, width, height);
        const int side = RoundToSide(static_cast<float>(viewport->width) * size * tool->GetPanelAspect());
        QLM_ImageMap shape;
        BuildHardShape(ShapeSource, shape, side, hardness);
        TipOutline.SetDimensions(static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1);
        BuildTurnedTip(shape, TipOutline, side, Radians(angle), tool->GetPanelAspect());
        uint8_t* outline = TipOutline.GetPixels();
        const int factor = HardnessFactor(hardness);
        for (uint64_t i = 0; i < TipOutline.GetByteCount(); ++i) outline[i] = Harden(outline[i], factor);
        OutlinePoints = FindOutline(outline, width, height);
    }
    if (OutlinePoints.empty()) OutlinePoints = CircleOutline(size * 0.5f * static_cast<float>(viewport->width));
    outlineSize = size;
    outlineHardness = hardness;
    outlineAngle = angle;
    outlineViewportWidth = viewport->width;
    outlineStale = false;
}

void QLM_BrushShapeManager::MirrorOverlay(QLM_ImageMap& overlay, bool mirrorX, bool mirrorY) {
    uint8_t* pixels = overlay.GetPixels();
    const size_t width = overlay.GetWidth(), height = overlay.GetHeight();
    if (mirrorX) {
        for (size_t y = 0; y < height; ++y) {
            uint8_t* row = pixels + y * width;
            for (size_t left = 0, right = width - 1; left < right; ++left, --right)
                row[left] = row[right] = std::max(row[left], row[right]);
        }
    }
    if (mirrorY) {
        for (size_t y = 0; y < height / 2; ++y) {
            uint8_t* lower = pixels + y * width;
            uint8_t* upper = pixels + (height - 1 - y) * width;
            for (size_t x = 0; x < width; ++x) lower[x] = upper[x] = std::max(lower[x], upper[x]);
        }
    }
}

void QLM_BrushShapeManager::DilateOverlay(QLM_ImageMap& overlay, int radius) {
    uint8_t* pixels = overlay.GetPixels();
    const int width = static_cast<int>(overlay.GetWidth()), height = static_cast<int>(overlay.GetHeight());
    // The largest of a square is the largest of its rows' largest.
    const auto dilate = [radius](const uint8_t* from, uint8_t* to, int count, size_t step) {
        for (int i = 0; i < count; ++i) {
            uint8_t largest = 0;
            for (int j = std::max(0, i - radius); j <= std::min(count - 1, i + radius); ++j)
                largest = std::max(largest, from[j * step]);
            to[i * step] = largest;
        }
    };
    std::vector<uint8_t> scratch(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y)
        dilate(pixels + static_cast<size_t>(y) * width, scratch.data() + static_cast<size_t>(y) * width, width, 1);
    for (int x = 0; x < width; ++x) dilate(scratch.data() + x, pixels + x, height, static_cast<size_t>(width));
}
