#include "Core/OS/QLM_Tablet.h"

#include "Core/OS/QLM_Clock.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/OS/String_Functions.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace {

constexpr double MouseAfterSeconds = 1.0;

std::atomic<float> pressure{1.0f};
QLM_Stopwatch sinceLastPacket;

/// a x b / c rounded to nearest, halves away from zero; c above 0.
int64_t MultiplyDivide(int64_t a, int64_t b, int64_t c) {
    const int64_t product = a * b;
    return (product + (product < 0 ? -c : c) / 2) / c;
}

} // namespace

float QLM_PressureFromRaw(int raw, int minimum, int range, float sensitivity, float cutoff) {
    if (range <= 0) return 0.0f;
    const int64_t offset = static_cast<int64_t>(raw) - minimum;
    const float p = static_cast<float>(MultiplyDivide(offset, 1024, range)) / 1023.0f;
    const float exponent = std::clamp(sensitivity, 0.01f, 1.0f) * 2.0f;
    const float floor = std::clamp(cutoff, 0.0f, 0.99f);
    float b = std::max(p - floor, 0.0f) / (1.0f - floor);
    for (int i = 0; i < 4; ++i) b = std::pow(b, exponent);
    return b;
}

void QLM_TabletPacket(int raw, int minimum, int range) {
    const auto& read = QLM_GetModuleHooks().tabletSettings;
    const QLM_TabletSettings settings = read ? read() : QLM_TabletSettings();
    QLM_SetPressure(QLM_PressureFromRaw(raw, minimum, range, settings.sensitivity, settings.cutoff));
}

void QLM_TabletButtonDown() {
    if (!sinceLastPacket.IsStarted() || sinceLastPacket.GetElapsedSeconds() > MouseAfterSeconds) pressure = 1.0f;
}

void QLM_SetPressure(float value) {
    pressure = value;
    sinceLastPacket.Start();
}

float QLM_GetPressure() { return pressure; }

void QLM_TabletSelfTest() {
    // The kernel's list has a line N: Name="..." for each device.
    FILE* const list = std::fopen("/proc/bus/input/devices", "r");
    char line[512];
    int found = 0;
    while (list && std::fgets(line, sizeof line, list)) {
        std::string name = line;
        if (name.rfind("N: Name=", 0) != 0) continue;
        name = QLM_Trim(name.substr(8));
        const std::string lower = QLM_ToLower(name);
        if (lower.find("pen") == std::string::npos && lower.find("stylus") == std::string::npos && lower.find("tablet") == std::string::npos) continue;
        std::printf("%s\n", name.c_str());
        ++found;
    }
    if (list) std::fclose(list);
    if (found == 0) std::printf("No pen devices.\n");
}
