// The measures of the program, each on stated input.

#include "Scene.h"

#include "Core/Objects/QLM_BaseClass.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <thread>

namespace {

struct Counted : public virtual QLM_BaseClass {
    int value = 1;
};

void DereferenceRaw(benchmark::State& state) {
    Counted* item = new Counted;
    for (auto _ : state) {
        benchmark::DoNotOptimize(item);
        benchmark::DoNotOptimize(item->value);
    }
    delete item;
}
BENCHMARK(DereferenceRaw);

void DereferenceSafePtr(benchmark::State& state) {
    QLM_SafePtr<Counted> item = new Counted;
    for (auto _ : state) {
        benchmark::DoNotOptimize(item);
        benchmark::DoNotOptimize(item->value);
    }
    delete static_cast<Counted*>(item);
}
BENCHMARK(DereferenceSafePtr);

void EmptyCrunch(benchmark::State& state) {
    for (auto _ : state)
        QLM_ThreadCrunch(
            1000, [](const ThreadCrunchRange&) {}, "EmptyCrunch_ThreadFunc");
}
BENCHMARK(EmptyCrunch)->UseRealTime();

void Frame(benchmark::State& state, QLM_Object* object) {
    if (!object) {
        state.SkipWithError("the model did not load");
        return;
    }
    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    for (auto _ : state) {
        viewports->GetViewport(0)->OnViewChanged();
        viewports->DrawAllViewports();
    }
    state.counters["quads"] = object->GetMesh()->GetPCount();
}

void FrameSpot(benchmark::State& state) {
    Frame(state, ImportForBenchmark(QLM_SOURCE_DIR "/../shared/data/spot/spot.obj", 1280, 720));
}
BENCHMARK(FrameSpot)->Unit(benchmark::kMillisecond)->UseRealTime();

void FrameMillionQuads(benchmark::State& state) {
    QLM_Object* object = ImportForBenchmark(GridFile(1000, 1000), 1280, 720);
    if (object) BindPlainMap(object, 4096);
    Frame(state, object);
}
BENCHMARK(FrameMillionQuads)->Unit(benchmark::kMillisecond)->UseRealTime();

void StrokeRelease(benchmark::State& state) {
    QLM_Object* object = ImportForBenchmark(GridFile(400, 250), 1280, 720);
    if (!object) {
        state.SkipWithError("the grid did not load");
        return;
    }
    BindPlainMap(object, 4096);
    QLM_Engine* engine = QLM_GetEngine();
    QLM_ToolManager* tools = QLM_GetManagers().GetToolManager();
    tools->SelectToolByName("ColorBrush");
    tools->GetCurrentTool()->Properties() = {0.1f, 1.0f, 0.5f, 0.0f, 1.0f, 0.1f, 1.0f};
    SettleBenchmark();
    for (auto _ : state) {
        engine->PointerPress(QLM_Engine::Button::Left, 400, 200, {});
        for (int i = 1; i <= 20; ++i) engine->PointerMove(400 + 24.0f * i, 200 + 16.0f * i);
        engine->WaitForBackgroundWork();
        const auto start = std::chrono::steady_clock::now();
        engine->PointerRelease(QLM_Engine::Button::Left, 880, 520);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        SettleBenchmark();
    }
    state.counters["quads"] = object->GetMesh()->GetPCount();
    state.counters["map_side"] = 4096;
}
BENCHMARK(StrokeRelease)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    StartBenchmarkProgram();
    benchmark::AddCustomContext("cores", std::to_string(std::thread::hardware_concurrency()));
    benchmark::RunSpecifiedBenchmarks();
    StopBenchmarkProgram();
    return 0;
}
