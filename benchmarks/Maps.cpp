// Resolving layers into maps.

#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr uint32_t side = 4096;
constexpr int layerCount = 8;

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Samples that repeat in no simple way.
void Fill(QLM_ImageMap& map, uint32_t seed) {
    uint8_t* samples = map.GetPixels();
    for (uint64_t i = 0; i < map.GetByteCount(); ++i) {
        seed = seed * 1664525u + 1013904223u;
        samples[i] = static_cast<uint8_t>(seed >> 24);
    }
}

/// A map whose layers, one blend type above an opaque base, are painted in every pixel with masks of all values.
class Stack {
  public:
    explicit Stack(int blendType) {
        map = manager.CreateMapSource();
        map->SetDimensions(side, side, 3);
        Fill(*map, 1);
        for (int i = 1; i < layerCount; ++i) {
            manager.CreateMapLayer()->SetBlendType(blendType);
            QLM_MaterialMapSource* member = map->GetCurrentLayerData(true);
            Fill(*member, static_cast<uint32_t>(i) * 7);
            Fill(member->Mask, static_cast<uint32_t>(i) * 11);
        }
        map->GetResolvedPixels();
    }
    ~Stack() { manager.Clear(); }

    QLM_MapManager manager;
    QLM_MaterialMapSource* map;
};

/// Copying what a resolve reads and writes.
double CopySeconds(Stack& stack) {
    std::vector<uint8_t> target(size_t(side) * side * 3);
    const auto start = std::chrono::steady_clock::now();
    for (const QLM_MaterialMapSource::Member& member : stack.map->GetMembers()) {
        memcpy(target.data(), member.map->GetPixels(), member.map->GetByteCount());
        memcpy(target.data(), member.map->Mask.GetPixels(), member.map->Mask.GetByteCount());
        benchmark::ClobberMemory();
    }
    return SecondsSince(start);
}

/// The vips command's whole run that composes as many layers, all with the pixels of the top one, into a file. 0 where it
/// isn't installed or has no such mode.
double VipsSeconds(Stack& stack, int mode) {
    if (mode < 0 || std::system("vips --version >/dev/null 2>&1") != 0) return 0;
    const QLM_MaterialMapSource::Member top = stack.map->GetMembers().back();
    const uint8_t *color = top.map->GetPixels(), *mask = top.map->Mask.GetPixels();
    std::vector<uint8_t> samples;
    for (size_t i = 0; i < size_t(side) * side; ++i)
        samples.insert(samples.end(), {color[i * 3], color[i * 3 + 1], color[i * 3 + 2], mask[i]});

    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "quillmere-vips";
    std::filesystem::create_directory(folder);
    std::ofstream(folder / "raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(samples.size()));
    const std::string in = "cd " + folder.string() + " && vips ", size = std::to_string(side);
    double seconds = 0;
    if (std::system((in + "rawload raw raw.v " + size + " " + size + " 4 && vips copy raw.v layer.v --interpretation srgb")
                        .c_str()) == 0) {
        std::string command = in + "composite '";
        for (int i = 0; i < layerCount; ++i) command += "layer.v ";
        command += "' out.v " + std::to_string(mode);
        const auto start = std::chrono::steady_clock::now();
        if (std::system(command.c_str()) == 0) seconds = SecondsSince(start);
    }
    std::filesystem::remove_all(folder);
    return seconds;
}

void ResolveEightLayers(benchmark::State& state, int blendType, int vipsMode) {
    Stack stack(blendType);
    for (auto _ : state) {
        stack.map->MarkAllCellsDirty();
        stack.map->ResolveMapLayer(false);
    }
    state.counters["side"] = side;
    state.counters["memcpy_ms"] = CopySeconds(stack) * 1e3;
    state.counters["vips_ms"] = VipsSeconds(stack, vipsMode) * 1e3;
}
BENCHMARK_CAPTURE(ResolveEightLayers, Normal, 0, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResolveEightLayers, Multiply, 5, 14)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResolveEightLayers, Overlay, 6, 16)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResolveEightLayers, Hue, 14, -1)->Unit(benchmark::kMillisecond)->UseRealTime();

/// What a small stroke costs: one cell of 64 x 64 pixels.
void ResolveOneCell(benchmark::State& state) {
    Stack stack(0);
    const float low[2] = {0.505f, 0.505f}, high[2] = {0.51f, 0.51f};
    for (auto _ : state) {
        stack.map->MarkCellsDirty(low, high);
        stack.map->ResolveMapLayer(false);
    }
    state.counters["layers"] = layerCount;
}
BENCHMARK(ResolveOneCell)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
