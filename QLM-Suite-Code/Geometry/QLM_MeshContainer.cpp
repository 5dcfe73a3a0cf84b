#include "Geometry/QLM_MeshContainer.h"

void QLM_MeshContainerOwner::Register(QLM_MeshContainerMesh* container, QLM_Mesh* mesh) {
    container->mesh = mesh;
    containers.push_back(container);
}

void QLM_MeshContainerOwner::NotifyAfterRawBuild() {
    for (QLM_MeshContainerMesh* container : containers) container->OnAfterRawBuild();
}

void QLM_MeshContainerOwner::NotifyAfterSetSizes() {
    for (QLM_MeshContainerMesh* container : containers) container->OnAfterSetSizes();
}

void QLM_MeshContainerOwner::NotifyVertexCount(int oldCount, int newCount) {
    for (QLM_MeshContainerMesh* container : containers) container->OnSetVertexCount(oldCount, newCount);
}

void QLM_MeshContainerOwner::NotifyTextureVertexCount(int oldCount, int newCount) {
    for (QLM_MeshContainerMesh* container : containers) container->OnSetTextureVertexCount(oldCount, newCount);
}

void QLM_MeshContainerOwner::NotifyPolygonCount(int oldCount, int newCount) {
    for (QLM_MeshContainerMesh* container : containers) container->OnSetPolygonCount(oldCount, newCount);
}
