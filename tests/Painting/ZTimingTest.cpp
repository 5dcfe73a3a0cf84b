
#include "Core/OS/QLM_Clock.h"
#include "Engine/QLM_Engine.h"
#include "Painting/QLM_TouchupBrush.h"
#include "Rendering/QLM_CullingManager.h"
#include "Support/TestScene.h"
#include "Tools/QLM_ToolManager.h"
#include <gtest/gtest.h>
#include <cmath>
TEST(ZTiming, Release) {
    TestScene scene(1280, 720);
    const int n = 316;
    std::vector<float> v, uv; std::vector<TestPolygon> p;
    for (int y = 0; y <= n; ++y) for (int x = 0; x <= n; ++x) {
        float a = float(x)/n, b = float(y)/n;
        v.insert(v.end(), {a-0.5f, b-0.5f, 0.05f*std::sin(9*a)}); uv.insert(uv.end(), {0.01f+0.98f*a, 0.01f+0.98f*b}); }
    for (int y = 0; y < n; ++y) for (int x = 0; x < n; ++x) { int i = y*(n+1)+x; p.push_back({{i,i},{i+1,i+1},{i+n+2,i+n+2},{i+n+1,i+n+1}}); }
    QLM_Object* o = scene.AddObject("S", v, uv, p);
    QLM_MaterialMapSource* m = scene.AddMap(o, 4096, 4096, 1, 2, 3); (void)m;
    scene.SetView(0.5f);
    auto* tools = QLM_GetManagers().GetToolManager(); tools->SelectToolByName("ColorBrush");
    for (float size : {0.05f, 0.1f, 0.3f}) {
        tools->GetCurrentTool()->Properties() = {.Size = size, .Hardness = 0.5f, .Strength = 0.7f, .Spacing = 0.1f};
        for (int k = 0; k < 3; ++k) {
            auto* e = QLM_GetEngine();
            auto t0 = QLM_Clock::RealNanoseconds();
            e->PointerPress(QLM_Engine::Button::Left, 350, 100, {});
            auto t1 = QLM_Clock::RealNanoseconds();
            e->PointerMove(900, 600); e->PointerMove(640, 100);
            e->WaitForBackgroundWork();
            auto t2 = QLM_Clock::RealNanoseconds();
            e->PointerRelease(QLM_Engine::Button::Left, 640, 100);
            auto t3 = QLM_Clock::RealNanoseconds();
            scene.Settle();
            auto t4 = QLM_Clock::RealNanoseconds();
            std::printf("size %.2f press %.1f stamp %.1f release %.1f settle %.1f ms\n", size, (t1-t0)/1e6, (t2-t1)/1e6, (t3-t2)/1e6, (t4-t3)/1e6);
        }
    }
}
