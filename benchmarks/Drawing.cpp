// Frames of the canvas by OpenGL, in a buffer without a screen.

#include "Scene.h"

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Rendering/QLM_GLRenderer.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Support/OffscreenGL.h"
#include "Tools/QLM_ToolManager.h"

#include <GL/gl.h>
#include <benchmark/benchmark.h>

#include <string>

namespace {

constexpr int width = 1280, height = 720;

bool IsUsable(benchmark::State& state, const OffscreenGL& gl, const QLM_Object* object) {
    if (!gl.GetError().empty()) state.SkipWithError(gl.GetError().c_str());
    else if (!object) state.SkipWithError("the object did not load");
    return gl.GetError().empty() && object;
}

void Tell(benchmark::State& state, QLM_Object* object) {
    state.SetLabel(reinterpret_cast<const char*>(glGetString(GL_RENDERER)));
    state.counters["polygons"] = object->GetMesh()->GetPCount();
    state.counters["frames"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void Orbit(benchmark::State& state, QLM_Object* object) {
    OffscreenGL gl(width, height);
    if (!IsUsable(state, gl, object)) return;
    QLM_ViewportManager& viewports = *QLM_GetManagers().GetViewportManager();
    for (auto _ : state) {
        viewports.Orbit(viewports.GetViewport(0), 2.0f, 0.5f);
        QLM_GL_DrawCanvas(true);
        glFinish();
    }
    Tell(state, object);
}

void OrbitSpot(benchmark::State& state) {
    Orbit(state, ImportForBenchmark(QLM_SOURCE_DIR "/../shared/data/spot/spot.obj", width, height));
}
BENCHMARK(OrbitSpot)->Unit(benchmark::kMillisecond)->UseRealTime();

void OrbitHundredThousandQuads(benchmark::State& state) {
    QLM_Object* object = ImportForBenchmark(GridFile(400, 250), width, height);
    if (object) BindPlainMap(object, 2048);
    Orbit(state, object);
}
BENCHMARK(OrbitHundredThousandQuads)->Unit(benchmark::kMillisecond)->UseRealTime();

/// A frame at rest with the outline under a moving pointer.
void HoverAtRest(benchmark::State& state) {
    QLM_Object* object = ImportForBenchmark(QLM_SOURCE_DIR "/../shared/data/spot/spot.obj", width, height);
    OffscreenGL gl(width, height);
    if (!IsUsable(state, gl, object)) return;
    QLM_GetManagers().GetToolManager()->SelectToolByName("ColorBrush");
    QLM_GetManagers().GetViewportManager()->FinishRenders();
    float x = 300;
    for (auto _ : state) {
        QLM_GetEngine()->PointerMove(x = x < 900 ? x + 1 : 300, 300);
        QLM_GL_DrawCanvas(false);
        glFinish();
    }
    Tell(state, object);
}
BENCHMARK(HoverAtRest)->Unit(benchmark::kMillisecond)->UseRealTime();

/// From a motion of a stroke to the frame that shows its stamps.
void PreviewOfMotion(benchmark::State& state) {
    QLM_Object* object = ImportForBenchmark(QLM_SOURCE_DIR "/../shared/data/spot/spot.obj", width, height);
    OffscreenGL gl(width, height);
    if (!IsUsable(state, gl, object)) return;
    QLM_Engine* engine = QLM_GetEngine();
    QLM_GetManagers().GetToolManager()->SelectToolByName("ColorBrush");
    engine->PointerPress(QLM_Engine::Button::Left, 400, 300, {});
    float x = 400;
    for (auto _ : state) {
        engine->PointerMove(x = x < 900 ? x + 12 : 400, 300);
        engine->WaitForBackgroundWork();
        QLM_GL_DrawCanvas(false);
        glFinish();
    }
    engine->PointerRelease(QLM_Engine::Button::Left, x, 300);
    SettleBenchmark();
    Tell(state, object);
}
BENCHMARK(PreviewOfMotion)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
