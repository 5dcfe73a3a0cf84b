// Morphs of a million vertices, beside a plain loop over the same arrays.

#include "Geometry/QLM_Mesh.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

namespace {

constexpr int side = 1001; // vertices; a million quads

/// A wavy grid with a number of morphs at strength 0.5 each, the first one current.
QLM_Mesh& GridWithMorphs(int morphCount) {
    static QLM_Mesh* mesh = [] {
        auto* grid = new QLM_Mesh(nullptr);
        grid->SetSizes(side * side, 0, (side - 1) * (side - 1));
        for (int v = 0; v < side * side; ++v) {
            const float point[] = {0.01f * static_cast<float>(v % side), 0.01f * static_cast<float>(v / side),
                                   0.002f * static_cast<float>(v % 97)};
            std::copy_n(point, 3, grid->Vertices[v]);
        }
        for (int p = 0; p < grid->GetPCount(); ++p) {
            const int corner = p / (side - 1) * side + p % (side - 1);
            const int corners[] = {corner, corner + 1, corner + side + 1, corner + side};
            grid->SetPolygonCornerCount(p, 4);
            for (int i = 0; i < 4; ++i) grid->SetPolygonVertex(p, i, corners[i]);
        }
        grid->AfterRawBuild();
        return grid;
    }();
    QLM_RootClassQueue<QLM_Morph*> morphs;
    for (mesh->GetMorphs(morphs); !morphs.IsEmpty(); morphs.Pop()) mesh->DeleteMorph(morphs);
    for (int m = 0; m < morphCount; ++m) {
        QLM_Morph* morph = mesh->CreateMorph();
        morph->SetNameText("morph " + std::to_string(m));
        morph->Strength = 0.5f;
        const QLM_MorphUse use(*mesh, morph, "GridWithMorphs");
        for (int64_t i = 0; i < 3LL * mesh->GetVCount(); ++i)
            use.GetDeltas()[i] = 0.001f * static_cast<float>((i + m) % 31);
    }
    mesh->GetMorphs(morphs);
    if (!morphs.IsEmpty()) mesh->SetCurrentMorph(morphs);
    mesh->ResolveMorphs(false);
    return *mesh;
}

void Tell(benchmark::State& state, const QLM_Mesh& mesh) { state.counters["quads"] = mesh.GetPCount(); }

/// With the sums valid, as behind each stroke: base + others + current.
void ResolveWithCurrentMorph(benchmark::State& state) {
    QLM_Mesh& mesh = GridWithMorphs(static_cast<int>(state.range(0)));
    for (auto _ : state) mesh.ResolveMorphs(true);
    Tell(state, mesh);
}
BENCHMARK(ResolveWithCurrentMorph)->Arg(1)->Arg(8)->ArgName("morphs")->Unit(benchmark::kMillisecond)->UseRealTime();

void ResolveTransformed(benchmark::State& state) {
    QLM_Mesh& mesh = GridWithMorphs(8);
    mesh.Transform_Scale[0] = 2.0f;
    for (auto _ : state) mesh.ResolveMorphs(true);
    mesh.Transform_Scale[0] = 1.0f;
    Tell(state, mesh);
}
BENCHMARK(ResolveTransformed)->Unit(benchmark::kMillisecond)->UseRealTime();

void ResolveWithoutOptimizedDeltas(benchmark::State& state) {
    QLM_Mesh& mesh = GridWithMorphs(8);
    for (auto _ : state) {
        mesh.InvalidateOptimizedDeltas();
        mesh.ResolveMorphs(true);
    }
    Tell(state, mesh);
}
BENCHMARK(ResolveWithoutOptimizedDeltas)->Unit(benchmark::kMillisecond)->UseRealTime();

void StrengthChange(benchmark::State& state) {
    QLM_Mesh& mesh = GridWithMorphs(8);
    QLM_Morph* morph = mesh.FindMorph("morph 5");
    float strength = morph->Strength;
    for (auto _ : state) {
        const float next = strength == 0.5f ? 0.25f : 0.5f;
        mesh.UpdateMorphForOptimizedDeltas(morph, strength, next);
        strength = next;
    }
    Tell(state, mesh);
}
BENCHMARK(StrengthChange)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The limit: the arrays of ResolveWithCurrentMorph with several morphs, on one thread, with the box.
void ResolveByPlainLoop(benchmark::State& state) {
    QLM_Mesh& mesh = GridWithMorphs(8);
    const float *base = mesh.Vertices.GetData(), *all = mesh.GetAllDeformationsMinusCurrent().GetData();
    const float *deltas = mesh.GetCurrentDeltas(), strength = mesh.GetCurrentMorph()->Strength;
    float* resolved = mesh.ResolvedVertices.GetData();
    float least[3] = {}, greatest[3] = {};
    for (auto _ : state) {
        for (int64_t v = 0; v < 3LL * mesh.GetVCount(); v += 3)
            for (int k = 0; k < 3; ++k) {
                const float x = base[v + k] + all[v + k] + strength * deltas[v + k];
                resolved[v + k] = x;
                least[k] = std::min(least[k], x);
                greatest[k] = std::max(greatest[k], x);
            }
        benchmark::DoNotOptimize(least);
        benchmark::DoNotOptimize(greatest);
    }
    Tell(state, mesh);
}
BENCHMARK(ResolveByPlainLoop)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
