#include "Geometry/QLM_Object.h"

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_PointBox.h"

QLM_Object::QLM_Object() { ReAddToIDMap(); }

QLM_Object::~QLM_Object() {
    if (QLM_Engine* engine = QLM_GetEngine(); engine && engine->managers)
        if (QLM_ObjectManager* manager = engine->managers->GetObjectManager(); QLM_IsItemUsable(manager))
            manager->ForgetObject(this);
    delete mesh;
}

void QLM_Object::SetMesh(QLM_Mesh* meshIn) {
    if (mesh == meshIn) return;
    delete mesh;
    mesh = meshIn;
}

void QLM_Object::ResolveMorphsAndBounds(bool applyTransform) {
    if (!mesh) return;
    mesh->ResolveMorphs(applyTransform);
    const QLM_SimpleArray<int32_t>& visible = mesh->GetVisibleVertices();
    const QLM_PointBox box =
        QLM_CrunchBox(visible.GetCount(), "Transformed_Bounds_ThreadFunc",
                      [&](int i, QLM_PointBox& own) { own.Add(mesh->ResolvedVertices[visible[i]]); });
    box.CopyTo(mesh->TransformedBoundsMin, mesh->TransformedBoundsMax);
}
