#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Rendering/QLM_ViewportManager.h"

#include <cmath>

namespace {
/// A running render reads the meshes.
void AbortRender() {
    QLM_Engine* engine = QLM_GetEngine();
    QLM_ViewportManager* viewports = engine && engine->managers ? engine->managers->GetViewportManager() : nullptr;
    if (viewports) viewports->AbortRender();
}
} // namespace

float QLM_UtilityManager::GetWeldFraction() { return std::pow(10.0f, -WeldThreshold); }

int QLM_UtilityManager::WeldVertices(const std::vector<QLM_Object*>& objects, float fraction, bool openEdgesOnly,
                                     bool selectedOnly, bool acrossGroupsOnly) {
    AbortRender();
    int count = 0;
    for (QLM_Object* object : objects) {
        QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
        if (!mesh || mesh->GetVCount() == 0) continue;
        mesh->Weld(fraction, openEdgesOnly, selectedOnly, acrossGroupsOnly);
        if (QLM_GetEngine()) QLM_GetManagers().GetObjectManager()->OnShapeChanged(object, true, true, true);
        ++count;
    }
    QLM_OS::Get().PrintMessage("Welded the vertices in (%d) object(s)", count);
    return count;
}

int QLM_UtilityManager::UnweldVertices(const std::vector<QLM_Object*>& objects) {
    AbortRender();
    int count = 0;
    for (QLM_Object* object : objects)
        if (object && object->GetMesh() && object->GetMesh()->Unweld()) ++count;
    return count;
}
