#include "Support/TestScene.h"

#include "App/QLM_CompositionRoot.h"
#include "Core/OS/QLM_Clock.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

/// Stops the program when all tests have run.
class ProgramEnvironment : public testing::Environment {
  public:
    void TearDown() override {
        if (running) QLM_StopProgram();
        running = false;
    }
    static bool running;
};
bool ProgramEnvironment::running = false;
testing::Environment* const environment = testing::AddGlobalTestEnvironment(new ProgramEnvironment);

void StartOnce() {
    if (ProgramEnvironment::running) return;
    QLM_StartOptions options;
    options.logFolder = QLM_OS::GetTempPath();
    options.applicationDirectory = QLM_BINARY_DIR "/";
    options.useUserSettings = false;
    options.installSignalHandlers = false;
    options.seed = 1;
    std::string error;
    if (!QLM_StartProgram(options, error)) {
        std::fprintf(stderr, "the program does not start: %s\n", error.c_str());
        std::abort();
    }
    QLM_Clock::UseSteppedTime();
    ProgramEnvironment::running = true;
}

} // namespace

TestScene::TestScene(int canvasWidth, int canvasHeight) {
    StartOnce();
    QLM_GetEngine()->ClearAll();
    QLM_OS::Get().recorded.clear();
    QLM_OS::Get().queuedAnswers.clear();
    QLM_GetManagers().GetViewportManager()->ChangeViewportSetup(0);
    QLM_GetManagers().GetViewportManager()->SetCanvasSize(canvasWidth, canvasHeight);
    Settle();
}

TestScene::~TestScene() {
    QLM_GetEngine()->ClearAll();
    Settle();
}

QLM_Object* TestScene::AddObject(const std::string& name, const std::vector<float>& vertices,
                                 const std::vector<float>& textureVertices, const std::vector<TestPolygon>& polygons) {
    auto* object = new QLM_Object;
    object->SetNameText(name);
    auto* mesh = new QLM_Mesh(object);
    object->SetMesh(mesh);
    mesh->SetSizes(static_cast<int>(vertices.size() / 3), static_cast<int>(textureVertices.size() / 2),
                   static_cast<int>(polygons.size()));
    std::copy(vertices.begin(), vertices.end(), mesh->Vertices.GetData());
    std::copy(textureVertices.begin(), textureVertices.end(), mesh->TextureVertices.GetData());
    for (size_t p = 0; p < polygons.size(); ++p) {
        const int polygon = static_cast<int>(p);
        mesh->SetPolygonCornerCount(polygon, static_cast<int>(polygons[p].size()));
        for (size_t i = 0; i < polygons[p].size(); ++i) {
            mesh->SetPolygonVertex(polygon, static_cast<int>(i), polygons[p][i].first);
            mesh->SetPolygonTextureVertex(polygon, static_cast<int>(i), polygons[p][i].second);
        }
    }
    mesh->AfterRawBuild();
    QLM_ObjectManager* manager = QLM_GetManagers().GetObjectManager();
    manager->AddObject(object);
    manager->SetCurrentObject(object);
    manager->OnShapeChanged(object, true, true, true);
    Settle();
    return object;
}

QLM_MaterialMapSource* TestScene::AddMap(QLM_Object* object, uint32_t width, uint32_t height, uint8_t r, uint8_t g,
                                         uint8_t b) {
    QLM_MapManager* manager = QLM_GetManagers().GetMapManager();
    QLM_MaterialMapSource* map = manager->CreateMapSource();
    map->Initialize(width, height, nullptr);
    Fill(map, r, g, b);
    map->OnWholeMapChanged();
    QLM_Mesh* mesh = object->GetMesh();
    manager->AssignMapToMaterialChannel(&mesh->GetMapList(), mesh->GetMaterials()[0]->Color, map);
    mesh->UpdateAllMapPolygonLists();
    Settle();
    return map;
}

QLM_Viewport* TestScene::GetViewport() const { return QLM_GetManagers().GetViewportManager()->GetViewport(0); }

void TestScene::SetView(float halfHeight) {
    QLM_Viewport* viewport = GetViewport();
    const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, origin[3] = {};
    viewport->SetRotationMatrix(identity);
    viewport->SetLookAt(origin);
    viewport->SetZoom(halfHeight / QLM_GetManagers().GetViewportManager()->GetPixelsPerUnit());
    Settle();
}

void TestScene::Settle() {
    QLM_Engine* engine = QLM_GetEngine();
    std::string what;
    for (int pass = 0; pass < 1000; ++pass) {
        engine->WaitForBackgroundWork();
        QLM_Clock::Step(1.0 / 60.0);
        engine->IdlePass();
        if (QLM_OS::Get().mouseButtonsDown > 0 || !engine->IsWorkPending(what)) break;
    }
    if (QLM_OS::Get().mouseButtonsDown == 0) engine->DrawFrame();
}

void TestScene::Click(float x, float y) { Stroke({{x, y}}); }

void TestScene::Stroke(const std::vector<std::pair<float, float>>& points) {
    QLM_Engine* engine = QLM_GetEngine();
    engine->PointerPress(QLM_Engine::Button::Left, points.front().first, points.front().second, {});
    for (size_t i = 1; i < points.size(); ++i) engine->PointerMove(points[i].first, points[i].second);
    engine->PointerRelease(QLM_Engine::Button::Left, points.back().first, points.back().second);
    Settle();
}

void TestScene::Fill(QLM_MaterialMapSource* map, uint8_t r, uint8_t g, uint8_t b) {
    uint8_t* pixels = map->GetPixels();
    for (uint64_t i = 0; i < map->GetByteCount(); i += 3) {
        pixels[i] = r;
        pixels[i + 1] = g;
        pixels[i + 2] = b;
    }
}

std::vector<int> TestScene::PixelAt(QLM_MaterialMapSource* map, int x, int y) {
    const uint8_t* p = map->GetResolvedPixels() + (static_cast<uint64_t>(y) * map->GetWidth() + x) * 3;
    return {p[0], p[1], p[2]};
}

std::vector<int> TestScene::ChangedBox(QLM_MaterialMapSource* map, uint8_t r, uint8_t g, uint8_t b) {
    const int width = static_cast<int>(map->GetWidth()), height = static_cast<int>(map->GetHeight());
    const uint8_t* p = map->GetResolvedPixels();
    std::vector<int> box = {width, height, -1, -1, 0};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x, p += 3) {
            if (p[0] == r && p[1] == g && p[2] == b) continue;
            box = {std::min(box[0], x), std::min(box[1], y), std::max(box[2], x), std::max(box[3], y), box[4] + 1};
        }
    return box[4] ? box : std::vector<int>{-1, -1, -1, -1, 0};
}
