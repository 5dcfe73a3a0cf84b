#pragma once
// The text of an OBJ file in pieces that workers scan side by side, with the same result as one reader's.

#include "FileInterchange/OBJ/QLM_LineScanner.h"

#include <string>
#include <vector>

constexpr size_t QLM_ObjLineLimit = 9998; ///< characters of a line, from a buffer of 9,999

/// What a piece of the text holds, found by the counting pass.
struct QLM_ObjChunk {
    size_t size = 0; ///< bytes up to and with its last line
    int64_t vertices = 0, textureVertices = 0, polygons = 0;
    int64_t loadedVertices = 0; ///< "v" lines in lower case; "V" is counted as a vertex, but not read
    size_t stopLine = 0;        ///< bytes of the stop token's line behind it; 0 without one
};

/// A line that isn't geometry. The text is valid as long as the block.
struct QLM_ObjStatement {
    enum Kind { Group, InternalName, Material, Library } kind;
    int32_t face; ///< faces of the chunk before it
    std::string_view text;
};

/// What a worker reads from a chunk; vertices and texture vertices go straight to their places.
struct QLM_ObjChunkContent {
    std::vector<int32_t> faces; ///< of each face its corner count, then vertex and texture vertex of each corner
    std::vector<QLM_ObjStatement> statements;
    int32_t faceCount = 0;
    bool badUVs = false; ///< a texture vertex was out of range and became the first
};

/// Where the vertices of a chunk go, and what its faces may point at.
struct QLM_ObjTargets {
    float* vertices;        ///< of the whole mesh
    float* textureVertices; ///< of the whole mesh
    int64_t firstVertex, firstTextureVertex;
    int vertexCount, textureVertexCount; ///< of the whole mesh
};

/// Cuts a block behind line ends into pieces of nearly equal size; sets their sizes only.
std::vector<QLM_ObjChunk> QLM_CutObjBlock(std::string_view block);
/// Counts a chunk's lines up to the stop token (null for none); its line and what follows belong to the chunk no more.
void QLM_CountObjChunk(std::string_view text, const char* stopToken, QLM_ObjChunk& chunk);
/// Reads a chunk that was counted. `internalNames`: comments may name groups.
void QLM_ReadObjChunk(std::string_view text, const QLM_ObjChunk& chunk, const QLM_ObjTargets& targets,
                      bool internalNames, QLM_ObjChunkContent& content);
