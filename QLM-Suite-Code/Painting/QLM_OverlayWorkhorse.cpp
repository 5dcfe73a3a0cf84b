#include "Painting/QLM_OverlayWorkhorse.h"

#include "Core/Logging/QLM_Logger.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

constexpr float WeakestStrength = 0.005f;
constexpr float FarthestPoint = 100.0f;
constexpr int BriefMilliseconds = 3; ///< a frame is not held up longer for stamps that are on their way

int OverlayPixel(float v, int size) { return static_cast<int>((v + 1.0f) * 0.5f * static_cast<float>(size)); }

} // namespace

void QLM_StampingOverlaySize(float brushSize, int viewportWidth, int viewportHeight, int& width, int& height) {
    // A small brush gets a finer overlay.
    const float side = (1.0f - brushSize) * 8192.0f + brushSize * 1920.0f;
    width = std::max(8, static_cast<int>(std::lround(side)) / 8 * 8);
    const float aspect =
        viewportWidth > 0 ? static_cast<float>(viewportHeight) / static_cast<float>(viewportWidth) : 1.0f;
    height = std::max(1, static_cast<int>(std::lround(static_cast<float>(width) * aspect)));
}

float QLM_StampDistance(float size, float spacing) { return 2.0f * size * std::max(spacing, 0.01f); }

TOverlay_Workhorse::TOverlay_Workhorse() { SetName("Overlay"); }

TOverlay_Workhorse::~TOverlay_Workhorse() { Stop(true); }

void TOverlay_Workhorse::StartStroke(const QLM_StrokeSettings& settingsIn, QLM_ImageMap& tip, uint32_t seed) {
    BeforeStart();
    {
        ThreadLockerScope scope(this);
        settings = settingsIn;
        canvas.Begin(settings, tip, seed);
        inputPoints.clear();
        takenPoints = 0;
        inputEnded = false;
        bounds[0] = bounds[1] = 2.0f;
        bounds[2] = bounds[3] = -2.0f;
        stampCount = paintedPointCount = 0;
        stampPoints.clear();
        hasPoint = false;
        stampsLate = settings.autoPressure || settings.smoothing > 1e-6f;
        stampDistance = QLM_StampDistance(settings.size, settings.spacing);
        pointsGiven = pointsDone = 0;
    }
    Start(&TOverlay_Workhorse::ThreadFunc, "OverlayWorkhorseThreadFunc");
}

void TOverlay_Workhorse::AddPoint(const QLM_MousePoint& point) {
    {
        ThreadLockerScope scope(this);
        if ((settings.varyStrength ? settings.strength * point.pressure : settings.strength) > WeakestStrength)
            ++paintedPointCount;
        inputPoints.push_back(point);
        // Far off the view nothing is painted, but the way there is walked pixel by pixel.
        inputPoints.back().x = std::clamp(point.x, -FarthestPoint, FarthestPoint);
        inputPoints.back().y = std::clamp(point.y, -FarthestPoint, FarthestPoint);
        ++pointsGiven;
    }
    Wake();
}

void TOverlay_Workhorse::FinishStroke() {
    {
        ThreadLockerScope scope(this);
        inputEnded = true;
    }
    Wake();
    WaitForThreadExit();
    working = false;
}

void TOverlay_Workhorse::Drain() {
    pointDone.WaitUntil([this] { return pointsDone >= pointsGiven || !IsThreadRunning(); });
}

void TOverlay_Workhorse::GetStrokeBounds(float* out) {
    ThreadLockerScope scope(this);
    std::copy_n(bounds, 4, out);
}

int TOverlay_Workhorse::GetStampCount() {
    ThreadLockerScope scope(this);
    return stampCount;
}

int TOverlay_Workhorse::GetPaintedPointCount() {
    ThreadLockerScope scope(this);
    return paintedPointCount;
}

void TOverlay_Workhorse::DrainBriefly() {
    pointDone.WaitFor(BriefMilliseconds, [this] { return !HasWaitingPoints() || !IsThreadRunning(); });
}

void TOverlay_Workhorse::CopyOverlay(QLM_ImageMap& target) {
    ThreadLockerScope scope(this);
    canvas.CopyTo(target);
}

QLM_PictureBox TOverlay_Workhorse::CopyChange(int pictureWidth, int pictureHeight, bool mirrorX, bool mirrorY,
                                              QLM_ImageMap& part) {
    ThreadLockerScope scope(this);
    QLM_PictureBox box = canvas.TakeChange(pictureWidth, pictureHeight);
    if (box.IsEmpty()) return box;
    if (mirrorX) box.Include({pictureWidth - box.x1, box.y0, pictureWidth - box.x0, box.y1});
    if (mirrorY) box.Include({box.x0, pictureHeight - box.y1, box.x1, pictureHeight - box.y0});
    part.SetDimensions(static_cast<uint32_t>(box.GetWidth()), static_cast<uint32_t>(box.GetHeight()), 1);
    canvas.CopyPart(box, pictureWidth, pictureHeight, part.GetPixels());
    return box;
}

void TOverlay_Workhorse::ThreadFunc(QLM_Workhorse* self) {
    QLM_TRACE(1);
    auto* workhorse = dynamic_cast<TOverlay_Workhorse*>(self);
    workhorse->Run();
    workhorse->OnThreadExit();
}

void TOverlay_Workhorse::Run() {
    for (;;) {
        if (CheckPause()) return;
        QLM_MousePoint point;
        bool ended = false;
        if (TakePoint(point, ended)) {
            Resample(point);
            ++pointsDone;
            pointDone.Notify();
        } else if (ended) {
            break;
        } else {
            WaitForWork();
        }
    }
    if (!stampsLate) return;
    ApplyAutoPressure();
    SmoothStamps();
    for (const QLM_MousePoint& stamp : stampPoints) {
        if (CheckPause()) return;
        StampNow(stamp);
    }
}

bool TOverlay_Workhorse::TakePoint(QLM_MousePoint& point, bool& ended) {
    ThreadLockerScope scope(this);
    ended = inputEnded;
    if (takenPoints == inputPoints.size()) return false;
    point = inputPoints[takenPoints++];
    return true;
}

void TOverlay_Workhorse::Resample(const QLM_MousePoint& point) {
    if (!hasPoint) {
        hasPoint = true;
        lastPoint = point;
        AddStamp(point);
        return;
    }
    const int nx =
        std::abs(OverlayPixel(point.x, settings.overlayWidth) - OverlayPixel(lastPoint.x, settings.overlayWidth));
    const int ny =
        std::abs(OverlayPixel(point.y, settings.overlayHeight) - OverlayPixel(lastPoint.y, settings.overlayHeight));
    const int count = std::max(nx, ny) + 1;
    for (int i = 1; i <= count; ++i) {
        const float t = static_cast<float>(i) / static_cast<float>(count);
        QLM_MousePoint step;
        step.x = lastPoint.x + (point.x - lastPoint.x) * t;
        step.y = lastPoint.y + (point.y - lastPoint.y) * t;
        step.pressure = lastPoint.pressure + (point.pressure - lastPoint.pressure) * t;
        // Distances count in x units.
        const float dx = step.x - lastStamp.x, dy = (step.y - lastStamp.y) * settings.aspect;
        const float limit = settings.varySize ? stampDistance * step.pressure : stampDistance;
        if (std::sqrt(dx * dx + dy * dy) > limit) AddStamp(step);
    }
    lastPoint = point;
}

void TOverlay_Workhorse::AddStamp(const QLM_MousePoint& stamp) {
    lastStamp = stamp;
    if (stampsLate) stampPoints.push_back(stamp);
    else StampNow(stamp);
}

void TOverlay_Workhorse::StampNow(const QLM_MousePoint& stamp) {
    ThreadLockerScope scope(this);
    canvas.Stamp(stamp.x, stamp.y, stamp.pressure);
    bounds[0] = std::min(bounds[0], stamp.x);
    bounds[1] = std::min(bounds[1], stamp.y);
    bounds[2] = std::max(bounds[2], stamp.x);
    bounds[3] = std::max(bounds[3], stamp.y);
    ++stampCount;
}

void TOverlay_Workhorse::ApplyAutoPressure() {
    if (!settings.autoPressure) return;
    const int n = static_cast<int>(stampPoints.size());
    const int k = static_cast<int>(settings.autoPressureMidpoint * static_cast<float>(n));
    for (int i = 0; i < n; ++i) {
        const float factor = i < k ? static_cast<float>(i) / static_cast<float>(k)
                                   : static_cast<float>(n - i) / static_cast<float>(n - k);
        stampPoints[static_cast<size_t>(i)].pressure *= factor;
    }
}

void TOverlay_Workhorse::SmoothStamps() {
    if (settings.smoothing <= 0.0001f) return;
    const int passes = static_cast<int>(static_cast<float>(stampPoints.size()) * settings.smoothing);
    for (int pass = 0; pass < passes; ++pass)
        for (size_t i = 1; i + 1 < stampPoints.size(); ++i) {
            const QLM_MousePoint &before = stampPoints[i - 1], &after = stampPoints[i + 1];
            QLM_MousePoint& point = stampPoints[i];
            point.x = (before.x + point.x + after.x) / 3.0f;
            point.y = (before.y + point.y + after.y) / 3.0f;
            point.pressure = (before.pressure + point.pressure + after.pressure) / 3.0f;
        }
}
