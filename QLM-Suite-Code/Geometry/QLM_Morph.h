#pragma once
// Morphs: per-vertex deltas with a strength, and the tree that holds those of one mesh.

#include "Engine/QLM_TreeGroup.h"
#include "Geometry/QLM_VertexMap.h"

class TextCommand;

/// Deltas of one mesh's vertices. Expanded, they stand in memory; parked, in the virtual memory store; a morph that
/// nobody has written to yet has no array at all and stands for zeros. Owned by its mesh's tree, which it leaves when
/// it is deleted. Expanded and parked on the main thread only, through the mesh's BeginUsingMorph and EndUsingMorph.
class QLM_Morph : public virtual QLM_BaseClass {
  public:
    explicit QLM_Morph(uint32_t meshID = 0, int vertexCount = 0);
    ~QLM_Morph() override;

    uint64_t GetDataSizeInBytes() const override { return static_cast<uint64_t>(VertexCount) * 12; }
    /// Block "morph": properties, "vcount", strengths and "dataCompressed". A parked morph is parked again.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    /// Takes the older records too ("DeltaCount", "Compressed", "data"). Numbers that aren't finite become 0; a delta
    /// of a vertex that doesn't exist is dropped.
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    /// True with the deltas in memory, or with no vertices.
    bool IsExpanded() const { return VertexCount == 0 || Deltas.GetData(); }
    /// False while all deltas are zero because nobody has used the morph yet.
    bool HasArray() const { return Deltas.GetCount() != 0; }
    /// Brings the deltas into memory; `caller` stands in the report of a failure ("Error retreiving morph data in
    /// %s"), after which they are zeros. False then.
    bool Expand(const char* caller);
    /// Hands the deltas to the store. Does nothing when they aren't in memory.
    void Park();
    /// Triple of a vertex, expanded when needed; raises without an array or out of range.
    float* GetVertex(int i);
    /// VertexCount triples, expanded when needed; null with no vertices.
    float* GetPointerToExpandedArray();
    /// Steps through the deltas that aren't zero, in vertex order; false behind the last one. One walk at a time.
    bool GetFirstDelta(int& index, float*& delta);
    bool GetNextDelta(int& index, float*& delta);
    /// Keeps the common part, new deltas are zero. The form stays as it is.
    void SetVertexCount(int n);
    /// Zeroes all deltas, expanded afterwards; raises without an array.
    void Clear();
    /// Adds the other's deltas, whatever its strength. Raises on different lengths.
    void Add(QLM_Morph& other);
    /// Takes over the other's deltas, length and mesh; neither name nor strength.
    void CopyFrom(QLM_Morph& other);
    void CopyStrengthFrom(const QLM_Morph& other);
    /// To be called by whoever wrote into the deltas: they are out of step with welded copies, and with the mesh's
    /// optimized deltas unless the morph is its current one.
    void MarkChanged();

    QLM_VertexMap3D Deltas;
    bool Synced = false;     ///< welded copies are in step
    bool Compressed = false; ///< of the older sparse record only
    int32_t DeltaCount = 0;  ///< of the older sparse record only
    uint32_t MeshId = 0;     ///< ID of the mesh
    float Strength = 1.0f, MinStrength = 0.0f, MaxStrength = 1.0f; ///< 1 is 100 %
    int32_t VertexCount = 0;
    int32_t Iterator = 0;
    bool Listed = false;    ///< stands in its mesh's tree, unlike the copies of an undo history
    bool Automatic = false; ///< came with the mesh and was neither changed nor read since

  private:
    bool ConsiderOwnKey(FILE* stream, TextCommand& command);
    bool ReadVertexCount(FILE* stream, int32_t count);
    bool ReadDense(const std::vector<uint8_t>& bytes);
    bool ReadSparse(const std::vector<uint8_t>& bytes);
};

/// The morphs of one mesh, named "Morph Targets", key "morphs". Reading a "morph" of a name that is in the tree reads
/// into that morph. Child folders are of the same class.
class QLM_MorphTreeGroup : public QLM_TopTreeGroup {
  public:
    explicit QLM_MorphTreeGroup(uint32_t meshID);
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    bool CreateChildGroup(FILE* stream, const std::string& key, const std::string& value) override;
    /// The first morph of that name in this folder or below; null without one.
    QLM_Morph* FindMorph(const std::string& name);

  private:
    uint32_t meshID;
};

