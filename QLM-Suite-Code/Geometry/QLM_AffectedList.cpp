#include "Geometry/QLM_AffectedList.h"

#include "Geometry/QLM_Mesh.h"

QLM_AffectedList& QLM_AffectedList::Get() {
    static QLM_AffectedList list;
    return list;
}

void QLM_AffectedList::Reset(QLM_Mesh* meshIn) {
    mesh = meshIn;
    points.ReleaseExternal();
    points.SetCount(mesh->GetVCount()); // the room
    points.SetCount(0);
    mesh->VertexMarkers[Marker].Reset(mesh->GetVCount());
}

void QLM_AffectedList::Add(int vertex, float weight) {
    if (points.IsExternal()) QLM_RaiseError("ExternalDataNotAllowed");
    points.Add({vertex, weight});
    mesh->VertexMarkers[Marker].Set(vertex);
}

bool QLM_AffectedList::Contains(int vertex) const { return mesh && mesh->VertexMarkers[Marker].Has(vertex); }

void QLM_AffectedList::ForgetMesh(const QLM_Mesh* meshIn) {
    if (mesh != meshIn) return;
    mesh = nullptr;
    points.ReleaseExternal();
    points.SetCount(0);
}
