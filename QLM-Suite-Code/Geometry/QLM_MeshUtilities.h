#pragma once
// The mesh's object, and the passes over normals.

#include "Geometry/QLM_MeshContainer.h"

class QLM_Object;

/// The two passes over normals, on the cruncher. With `visibleOnly` hidden parts keep theirs.
class QLM_MeshCalculateNormalsContainer : public QLM_MeshContainerMesh {
  public:
    /// Normals of the soft selection's vertices and of their polygons, on the calling thread: the cheap road behind a
    /// stroke. Corner normals are left alone.
    void RecalculateNormalsForSelectedVertices();

  protected:
    void CrunchPolygonNormals(bool visibleOnly);
    void CrunchVertexNormals(bool visibleOnly);
};

class QLM_MeshUtilitiesContainer : public QLM_MeshContainerMesh {
  public:
    QLM_Object* GetObject() const { return object; }
    bool ReferenceObject = false;

  protected:
    QLM_Object* object = nullptr;
};
