// Resolving layers into maps.

#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
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

/// ImageMagick's whole run that makes and flattens as many layers of one colour each.
double MagickSeconds(const char* compose) {
    if (std::system("convert -version 2>/dev/null | grep -q ImageMagick") != 0) return 0;
    std::string command = "convert -size 4096x4096 -depth 8 xc:'rgb(200,100,50)'";
    for (int i = 1; i < layerCount; ++i) command += " xc:'rgba(" + std::to_string(i * 30) + ",90,200,0.5)'";
    command += std::string(" -compose ") + compose + " -flatten null: 2>/dev/null";
    const auto start = std::chrono::steady_clock::now();
    return std::system(command.c_str()) == 0 ? SecondsSince(start) : 0.0;
}

void ResolveEightLayers(benchmark::State& state, int blendType, const char* compose) {
    Stack stack(blendType);
    for (auto _ : state) {
        stack.map->MarkAllCellsDirty();
        stack.map->ResolveMapLayer(false);
    }
    state.counters["side"] = side;
    state.counters["memcpy_ms"] = CopySeconds(stack) * 1e3;
    state.counters["imagemagick_ms"] = MagickSeconds(compose) * 1e3;
}
BENCHMARK_CAPTURE(ResolveEightLayers, Normal, 0, "over")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResolveEightLayers, Multiply, 5, "multiply")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResolveEightLayers, Overlay, 6, "overlay")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ResolveEightLayers, Hue, 14, "hue")->Unit(benchmark::kMillisecond)->UseRealTime();

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
