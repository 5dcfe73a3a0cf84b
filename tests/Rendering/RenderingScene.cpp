#include "Rendering/RenderingScene.h"

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_MorphManager.h"
#include "Geometry/QLM_SelectionManager.h"
#include "Geometry/QLM_SubDManager.h"
#include "Geometry/QLM_SymmetryManager.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Geometry/QLM_VertexWeightManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_Material.h"
#include "Math/QLM_MathTables.h"
#include "Math/QLM_Random.h"
#include "Rendering/QLM_CullingManager.h"
#include "Rendering/QLM_RenderManagers.h"
#include "Support/TestScene.h"
#include "Tools/QLM_ToolManager.h"

RenderingScene::RenderingScene(int canvasWidth, int canvasHeight) {
    QLM_InitializeMathLookupTables();
    QLM_InitializeEvents();
    QLM_EngineParts parts;
    parts.createManagers = [](QLM_Managers& managers) {
        managers.Add(&QLM_Managers::fadeByAngle, new QLM_FadeByAngleManager);
        managers.Add(&QLM_Managers::culling, new QLM_CullingManager);
        managers.Add(&QLM_Managers::viewport, new QLM_ViewportManager);
        managers.Add(&QLM_Managers::viewportHover, new QLM_ViewportHoverManager);
        managers.Add(&QLM_Managers::tool, new QLM_ToolManager);
        managers.Add(&QLM_Managers::vertexWeight, new QLM_VertexWeightManager);
        managers.Add(&QLM_Managers::object, new QLM_ObjectManager);
        managers.Add(&QLM_Managers::map, new QLM_MapManager);
    };
    parts.createEmptyMaterial = [] { return new QLM_Material; };
    QLM_CreateEngine("Quillmere", parts, {}, false);
    QLM_OS::Get().recorded.clear();
    Manager().SetCanvasSize(canvasWidth, canvasHeight);
}

RenderingScene::~RenderingScene() { QLM_GetEngine()->ShutDown(); }

QLM_Object* RenderingScene::AddObject(const std::vector<float>& vertices, const std::vector<float>& uvs,
                                      const std::vector<std::vector<int>>& polygons) {
    Manager().AbortRender();
    auto* object = new QLM_Object;
    auto* mesh = new QLM_Mesh(object);
    object->SetMesh(mesh);
    mesh->SetSizes(static_cast<int>(vertices.size() / 3), static_cast<int>(uvs.size() / 2),
                   static_cast<int>(polygons.size()));
    std::copy(vertices.begin(), vertices.end(), mesh->Vertices.GetData());
    std::copy(uvs.begin(), uvs.end(), mesh->TextureVertices.GetData());
    mesh->AddMaterial(new QLM_Material);
    for (int p = 0; p < static_cast<int>(polygons.size()); ++p) {
        mesh->SetPolygonCornerCount(p, static_cast<int>(polygons[p].size()));
        mesh->SetPolygonMaterial(p, 0);
        for (int i = 0; i < static_cast<int>(polygons[p].size()); ++i) {
            mesh->SetPolygonVertex(p, i, polygons[p][i]);
            mesh->SetPolygonTextureVertex(p, i, polygons[p][i]);
        }
    }
    mesh->AfterRawBuild();
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    objects->AddObject(object);
    objects->OnShapeChanged(object, true, true, true);
    return object;
}

QLM_Object* RenderingScene::AddQuad(float z) {
    return AddObject({-0.5f, -0.5f, z, 0.5f, -0.5f, z, 0.5f, 0.5f, z, -0.5f, 0.5f, z}, {0, 0, 1, 0, 1, 1, 0, 1},
                     {{0, 1, 2, 3}});
}

QLM_MaterialMapSource* RenderingScene::AddMap(QLM_Object* object, uint32_t width, uint32_t height, uint8_t r, uint8_t g,
                                              uint8_t b) {
    Manager().AbortRender();
    QLM_MapManager* maps = QLM_GetManagers().GetMapManager();
    QLM_MaterialMapSource* map = maps->CreateMapSource();
    map->Initialize(width, height, nullptr);
    TestScene::Fill(map, r, g, b);
    QLM_Mesh* mesh = object->GetMesh();
    maps->AssignMapToMaterialChannel(&mesh->GetMapList(), mesh->GetMaterials()[0]->Color, map);
    mesh->UpdateAllMapPolygonLists();
    Manager().RequestFullRedraw();
    return map;
}

void RenderingScene::SetFrontView(int viewport) {
    const float origin[3] = {};
    View(viewport).SetRotationMatrix(View(viewport).DefaultRotationMatrix);
    View(viewport).SetLookAt(origin);
    View(viewport).SetZoom(0.5f / Manager().GetPixelsPerUnit());
}

std::vector<int> RenderingScene::Pixel(int x, int y, int viewport) const {
    const uint8_t* p = View(viewport).r4s.Pixels.GetPixels() + (static_cast<size_t>(y) * View(viewport).width + x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

uint64_t RenderingScene::PictureHash(int viewport) const {
    QLM_RenderState& state = View(viewport).r4s;
    uint64_t hash = QLM_HashStart;
    for (QLM_ImageMap* plane : {&state.Pixels, &state.UnlitRenderedPixels, &state.PolygonIDMask})
        hash = QLM_Hash(plane->GetPixels(), plane->GetByteCount(), hash);
    hash = QLM_Hash(state.DepthBuffer.GetDataFloat(), state.DepthOwner.size() * sizeof(float), hash);
    return QLM_Hash(state.DepthOwner.data(), state.DepthOwner.size() * sizeof(uint32_t), hash);
}
