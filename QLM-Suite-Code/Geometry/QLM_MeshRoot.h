#pragma once
// The abstract surface that everything which only draws or measures geometry uses.

#include "Core/Objects/ThreadLocker.h"
#include "Geometry/QLM_JaggedTable.h"
#include "Geometry/QLM_MarkerSet.h"
#include "Geometry/QLM_Polygon.h"
#include "Geometry/QLM_VertexMap.h"

class QLM_Material;
class QLM_Mesh;

/// Arrays change on the main thread while no worker runs; workers read freely.
class QLM_MeshRoot : public virtual QLM_BaseClass {
  public:
    virtual int GetMaterialCount() const = 0;
    virtual QLM_SafePtr<QLM_Material> GetMaterial(int index) const = 0; ///< null when out of range
    virtual void CalculatePolygonNormal(int p);
    virtual void CalculateVertexNormal(int v);
    virtual void CalculatePolygonNormals(bool visibleOnly) = 0;
    virtual void CalculateVertexNormals(bool visibleOnly) = 0;
    virtual void CalculateNormals(bool visibleOnly);
    virtual void SaveVertexNormals();
    QLM_Mesh* GetMesh() const { return Mesh; }
    virtual int GetPolygonVertex(int p, int i) const = 0; ///< through the weld map when welded
    virtual int GetPolygonTextureVertex(int p, int i) const = 0;
    virtual int GetPolygonRawVertex(int p, int i) const = 0;
    virtual int GetPolygonMaterial(int p) const = 0;
    virtual int GetPolygonVertexCount(int p) const = 0;
    /// The same polygons for loops over all of them; valid until counts or the weld map change.
    virtual QLM_PolygonView GetPolygonView() const = 0;
    virtual bool IsPolygonHidden(int p) const = 0;
    virtual bool IsPolygonLocked(int p) const = 0;
    virtual bool IsPolygonHiddenOrLocked(int p) const = 0;
    virtual void AfterRawBuild();
    virtual void SetVCount(int n);
    virtual void SetVTCount(int n);
    virtual void SetPCount(int n);

    int GetVCount() const { return static_cast<int>(Vertices.GetCount()); }
    int GetVTCount() const { return static_cast<int>(TextureVertices.GetCount()); }
    int GetPCount() const { return PolygonCount; }
    /// Polygons of each vertex, ascending; a polygon that holds a vertex twice stands in its row twice.
    void BuildVertexPolygons();
    /// All other vertices of a vertex's polygons in order of first meeting. Needs the polygons of each vertex.
    void BuildVertexNeighbors();
    int GetVertexPolygonCount(int v) const { return VertexPolygons.GetCount(v); }
    int GetVertexPolygon(int v, int i) const { return VertexPolygons.Get(v, i); }
    int GetVertexNeighborCount(int v) const { return VertexNeighbors.GetCount(v); }
    int GetVertexNeighbor(int v, int i) const { return VertexNeighbors.Get(v, i); }

    QLM_VertexMap3D Vertices;         ///< raw base positions
    QLM_VertexMap3D ResolvedVertices; ///< raw plus morphs, in world space after a resolve with transform
    QLM_VertexMap2D TextureVertices;
    QLM_VertexMap3D VertexNormals, PolygonNormals, SavedVertexNormals;
    QLM_MarkerSet VertexMarkers[7], PolygonMarkers[7];
    int PolygonCount = 0;
    QLM_Mesh* Mesh = nullptr;
    QLM_JaggedTable VertexPolygons, VertexNeighbors;
    float BoundsDiagonal = 0;
    float BoundsMin[3] = {}, BoundsMax[3] = {};
    float ResolvedBoundsMin[3] = {}, ResolvedBoundsMax[3] = {};
    float TransformedBoundsMin[3] = {}, TransformedBoundsMax[3] = {};
};
