#include "Scene.h"

#include "App/QLM_CompositionRoot.h"
#include "Core/OS/QLM_Clock.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void StartBenchmarkProgram() {
    QLM_StartOptions options;
    options.logFolder = QLM_OS::GetTempPath();
    options.applicationDirectory = QLM_BINARY_DIR "/";
    options.useUserSettings = false;
    options.seed = 1;
    std::string error;
    if (!QLM_StartProgram(options, error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        std::exit(1);
    }
    QLM_Clock::UseSteppedTime();
}

void StopBenchmarkProgram() { QLM_StopProgram(); }

std::string GridFile(int columns, int rows) {
    const std::string path =
        QLM_OS::GetTempPath() + "quillmere-grid-" + std::to_string(columns) + "x" + std::to_string(rows) + ".obj";
    if (QLM_FileExists(path)) return path;
    QLM_SafeFileWriter writer(path);
    FILE* file = writer.GetStream();
    for (int y = 0; y <= rows; ++y)
        for (int x = 0; x <= columns; ++x) {
            const double u = static_cast<double>(x) / columns, v = static_cast<double>(y) / rows;
            std::fprintf(file, "v %.6f %.6f %.6f\n", u * 2 - 1, v * 2 - 1, 0.1 * std::sin(u * 20) * std::cos(v * 17));
        }
    for (int y = 0; y <= rows; ++y)
        for (int x = 0; x <= columns; ++x)
            std::fprintf(file, "vt %.6f %.6f\n", 0.01 + 0.98 * x / columns, 0.01 + 0.98 * y / rows);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x) {
            const int a = y * (columns + 1) + x + 1, b = a + 1, c = b + columns + 1, d = a + columns + 1;
            std::fprintf(file, "f %d/%d %d/%d %d/%d %d/%d\n", a, a, b, b, c, c, d, d);
        }
    if (!writer.Commit()) std::exit(1);
    return path;
}

void SettleBenchmark() {
    std::string what;
    for (int pass = 0; pass < 1000; ++pass) {
        QLM_GetEngine()->WaitForBackgroundWork();
        QLM_Clock::Step(1.0 / 60.0);
        QLM_GetEngine()->IdlePass();
        if (!QLM_GetEngine()->IsWorkPending(what)) break;
    }
}

QLM_Object* ImportForBenchmark(const std::string& path, int canvasWidth, int canvasHeight) {
    QLM_GetEngine()->ClearAll();
    // Deleted items leave after ten passes.
    for (int i = 0; i < 12; ++i) QLM_GetEngine()->IdlePass();
    QLM_GetManagers().GetViewportManager()->SetCanvasSize(canvasWidth, canvasHeight);
    QLM_OS::Get().queuedAnswers.assign(1, "no");
    if (!QLM_GetManagers().GetIOManager()->ImportGeometryFile(nullptr, path, QLM_ImporterCode::OBJ, 0)) return nullptr;
    QLM_OS::Get().queuedAnswers.clear();
    SettleBenchmark();
    return QLM_GetManagers().GetObjectManager()->GetCurrentObject();
}

void BindPlainMap(QLM_Object* object, unsigned side) {
    QLM_MapManager* maps = QLM_GetManagers().GetMapManager();
    QLM_MaterialMapSource* map = maps->CreateMapSource();
    const float grey[3] = {0.6f, 0.5f, 0.4f};
    map->Initialize(side, side, grey);
    QLM_Mesh* mesh = object->GetMesh();
    maps->AssignMapToMaterialChannel(&mesh->GetMapList(), mesh->GetMaterials()[0]->Color, map);
    mesh->UpdateAllMapPolygonLists();
    QLM_GetManagers().GetViewportManager()->OnAllViewportsChanged();
    SettleBenchmark();
}

double PeakMegabytes() {
    FILE* file = std::fopen("/proc/self/status", "r");
    if (!file) return 0;
    char line[256];
    double kilobytes = 0;
    while (std::fgets(line, sizeof line, file))
        if (std::strncmp(line, "VmHWM:", 6) == 0) std::sscanf(line + 6, "%lf", &kilobytes);
    std::fclose(file);
    return kilobytes / 1024;
}
