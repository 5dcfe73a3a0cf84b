#pragma once
// A polygon mesh with separate position and texture vertices, its behaviours split over a chain of containers.

#include "Geometry/QLM_MeshConcavity.h"
#include "Geometry/QLM_MeshCornerNormals.h"
#include "Geometry/QLM_MeshDisplayGroups.h"
#include "Geometry/QLM_MeshFlags.h"
#include "Geometry/QLM_MeshGroups.h"
#include "Geometry/QLM_MeshHotSelection.h"
#include "Geometry/QLM_MeshLookups.h"
#include "Geometry/QLM_MeshMaterials.h"
#include "Geometry/QLM_MeshMorphs.h"
#include "Geometry/QLM_MeshOctree.h"
#include "Geometry/QLM_MeshRoot.h"
#include "Geometry/QLM_MeshSymmetry.h"
#include "Geometry/QLM_MeshTransform.h"
#include "Geometry/QLM_MeshUtilities.h"
#include "Geometry/QLM_MeshWeld.h"
#include "Geometry/QLM_Polygon.h"

class QLM_Group2;
class QLM_MaterialMapList;
class QLM_Object;
class TextCommand;

/// Owned by its object. A builder calls SetSizes, fills vertices, texture vertices and polygons, then AfterRawBuild;
/// nothing else may be read before that call. Counts and arrays change on the main thread while no worker runs.
class QLM_Mesh : public QLM_MeshRoot,
                 public QLM_MeshContainerOwner,
                 public QLM_DisplayGroupFlagContainer,
                 public QLM_TransformMeshContainer,
                 public QLM_MeshLookupsContainer,
                 public QLM_OctreeMeshContainer,
                 public QLM_MeshFlagsContainer,
                 public QLM_MeshMaterialContainer,
                 public QLM_MeshGroupContainer,
                 public QLM_MeshSymmetryContainer,
                 public QLM_MeshDiscontinuousNormalsContainer,
                 public QLM_MeshHotSelectionContainer,
                 public QLM_MeshConcaveContainer,
                 public QLM_WeldMeshContainer,
                 public QLM_MeshMorphContainer,
                 public QLM_MeshCalculateNormalsContainer,
                 public QLM_MeshUtilitiesContainer {
  public:
    explicit QLM_Mesh(QLM_Object* object);
    ~QLM_Mesh() override;

    using QLM_MeshGroupContainer::GetGroupCount; ///< of polygon groups, not of display group columns

    virtual void SetPolygonVertex(int p, int i, int v);
    virtual void SetPolygonTextureVertex(int p, int i, int vt);
    virtual void SetPolygonGroup(int p, int g);
    virtual void SetPolygonMaterial(int p, int m);
    /// Gives the polygon `n` corners (0..1000) of -1.
    virtual void SetPolygonCornerCount(int p, int n);
    virtual QLM_PolygonCorner* GetPolygonCorners(int p);
    virtual void SetSizes(int vcount, int vtcount, int pcount);

    const QLM_Polygon& GetPolygon(int p) const { return Polygons[p]; }
    const QLM_Polygon* GetPolygons() const { return Polygons.data(); }

    int GetMaterialCount() const override { return GetMaterials().Count(); }
    QLM_SafePtr<QLM_Material> GetMaterial(int index) const override { return FindMaterial(index); }
    void CalculatePolygonNormals(bool visibleOnly) override { CrunchPolygonNormals(visibleOnly); }
    void CalculateVertexNormals(bool visibleOnly) override { CrunchVertexNormals(visibleOnly); }
    /// Polygon normals, vertex normals, then the corner normals of sharp edges.
    void CalculateNormals(bool visibleOnly) override;
    int GetPolygonVertex(int p, int i) const override { return GetWeldTarget(Polygons[p].corners[i].vertex); }
    int GetPolygonTextureVertex(int p, int i) const override { return Polygons[p].corners[i].textureVertex; }
    int GetPolygonRawVertex(int p, int i) const override { return Polygons[p].corners[i].vertex; }
    int GetPolygonMaterial(int p) const override { return Polygons[p].material; }
    int GetPolygonVertexCount(int p) const override { return Polygons[p].count; }
    QLM_PolygonView GetPolygonView() const override { return {Polygons.data(), GetWeldMap()}; }
    bool IsPolygonHidden(int p) const override { return HasPolygonFlag(p, ePFlag_Hidden); }
    bool IsPolygonLocked(int p) const override { return HasPolygonFlag(p, ePFlag_Locked); }
    bool IsPolygonHiddenOrLocked(int p) const override { return HasPolygonFlag(p, ePFlag_Hidden | ePFlag_Locked); }
    /// Repairs what was filled in and derives everything else: lookups, normals, box, groups, octree, map lists.
    /// Resolves no morph. May ask the user about texture coordinates out of range, once an object.
    void AfterRawBuild() override;
    void SetVCount(int n) override;
    void SetVTCount(int n) override;
    void SetPCount(int n) override;

    /// Block "mesh": sizes, the raw arrays, transform, symmetry, weld map, materials, groups, morphs.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    /// Block "meshReference": what the user added to geometry that stays in a file of its own.
    bool SaveReferenceToStream_Text(FILE* stream);
    /// A key that fails is reported to the user; what stood before it is kept. AfterRawBuild has to follow.
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    /// Fills the polygons from records of u16 material, u16 group, u16 corner count and (i32 vertex, i32 texture
    /// vertex) a corner. False when the bytes don't hold exactly the mesh's polygons; those that they hold are filled.
    bool ConvertArrayToPolygons(const uint8_t* bytes, size_t size);
    /// Behind a load and AfterRawBuild: the morphs are summed anew, and the search for symmetric partners begins.
    void SetupAfterLoad();

    void CalculateBounds();
    void GetPolygonUVBounds(int p, float* minUV, float* maxUV) const;
    /// The resolved vertex through the engine's scene matrix; as it is without an engine.
    void GetTransformedVertex(int v, float* out) const;
    /// The material of a polygon, the engine's empty material when it has none (null without an engine).
    QLM_Material* GetMaterialOfPolygon(int p) const;

  private:
    void ReplaceCorners(int p, QLM_PolygonCorner* corners, int n);
    bool ShallWrapUVs();
    void WrapUVs();
    void EnsureGroupAndMaterial();
    void RepairCorners();
    void TellManagersOfNewShape();
    void SaveArrays(FILE* stream);
    void SaveParts(FILE* stream);
    void ConsiderSize(FILE* stream, TextCommand& command);
    void ConsiderArray(FILE* stream, TextCommand& command);
    void ConsiderSetting(TextCommand& command);
    void ConsiderPart(FILE* stream, TextCommand& command);
    void LoadMaterial(FILE* stream, const std::string& name);
    void LoadGroup(FILE* stream, const std::string& name);
    void LoadWeldMap(FILE* stream);
    void FailLoad(const std::string& message);
    std::string GetOwnerName() const;

    std::vector<QLM_Polygon> Polygons;
};
