#include "FileInterchange/OBJ/QLM_ObjText.h"

#include "Core/OS/String_Functions.h"
#include "Geometry/QLM_Polygon.h"

#include <algorithm>

namespace {

constexpr size_t ChunksOfBlock = 16;

enum class Keyword { None, Vertex, UpperVertex, TextureVertex, Face, Other };

/// The keyword of a line and what follows it, for the lines that there are millions of.
Keyword KeywordOf(std::string_view line, std::string_view& rest) {
    const char *p = line.data(), *end = p + line.size();
    while (p != end && QLM_Scan::IsBlank(*p)) ++p;
    if (p == end) return Keyword::None;
    const char* word = p;
    while (p != end && !QLM_Scan::IsBlank(*p)) ++p;
    rest = {p, static_cast<size_t>(end - p)};
    const std::string_view token(word, static_cast<size_t>(p - word));
    if (token == "v") return Keyword::Vertex;
    if (token == "vt") return Keyword::TextureVertex;
    if (token == "f" || token == "fo") return Keyword::Face;
    return token == "V" ? Keyword::UpperVertex : Keyword::Other;
}

bool IsStopLine(std::string_view line, const char* stopToken) {
    std::string_view rest;
    return stopToken && QLM_CompareNoCase(QLM_Scan::Word(line, rest), stopToken) == 0;
}

/// The reader of one chunk.
class ChunkReader {
  public:
    ChunkReader(const QLM_ObjChunk& chunk, const QLM_ObjTargets& targetsIn, bool internalNamesIn,
                QLM_ObjChunkContent& contentIn)
        : targets(targetsIn), internalNames(internalNamesIn), content(contentIn), vertex(targets.firstVertex),
          textureVertex(targets.firstTextureVertex), vertexEnd(vertex + chunk.loadedVertices),
          textureVertexEnd(textureVertex + chunk.textureVertices), facesLeft(chunk.polygons) {}

    void Line(std::string_view line) {
        std::string_view rest;
        switch (KeywordOf(line, rest)) {
        case Keyword::Vertex:
            // The file may have changed since it was counted.
            if (vertex < vertexEnd) QLM_Scan::Floats(rest, targets.vertices + 3 * vertex++, 3);
            break;
        case Keyword::TextureVertex:
            if (textureVertex < textureVertexEnd)
                QLM_Scan::Floats(rest, targets.textureVertices + 2 * textureVertex++, 2);
            break;
        case Keyword::Face:
            if (facesLeft-- > 0) Face(rest);
            break;
        case Keyword::Other:
            Statement(line);
            break;
        default:
            break;
        }
    }

  private:
    void Add(QLM_ObjStatement::Kind kind, std::string_view text) {
        content.statements.push_back({kind, content.faceCount, text});
    }

    void Statement(std::string_view line) {
        std::string_view rest, name;
        const std::string_view token = QLM_Scan::Word(line, rest);
        if (token == "g") Add(QLM_ObjStatement::Group, rest);
        else if (line[0] == '#') {
            if (internalNames && QLM_CompareNoCase(QLM_Scan::Word(line.substr(std::min<size_t>(2, line.size())), name),
                                                   "InternalName:") == 0)
                Add(QLM_ObjStatement::InternalName, name);
        } else if (token == "usemtl") Add(QLM_ObjStatement::Material, rest);
        else if (line = QLM_Scan::Trim(line); line.starts_with("mtllib"))
            Add(QLM_ObjStatement::Library, QLM_Scan::Trim(line.substr(6)));
    }

    /// Appends the face when every corner is good.
    void Face(std::string_view text) {
        const size_t start = content.faces.size();
        if (Corners(text)) ++content.faceCount;
        else content.faces.resize(start);
    }

    bool Corners(std::string_view text) {
        const char *p = text.data(), *end = p + text.size();
        const size_t start = content.faces.size();
        content.faces.push_back(0);
        int count = 0;
        bool badUVs = false;
        while (p != end && QLM_Scan::IsBlank(*p)) ++p;
        while (count < QLM_MaximumCorners && p != end) {
            int v = 0, t = 0;
            const char* cursor = p;
            // "v/t/n", "v//n", "v/t" or "v"; the normal counts for nothing.
            if (!QLM_Scan::Integer(cursor, end, v)) return false;
            if (cursor != end && *cursor == '/') {
                ++cursor;
                if (!QLM_Scan::Integer(cursor, end, t)) t = 0;
            }
            if (v == 0) break;
            // Relative numbers count back from what has been read so far.
            const int64_t place = v >= 1 ? v - 1 : v + vertex;
            int64_t texture = t == 0 || textureVertex == 0 ? -1 : t >= 1 ? t - 1 : t + textureVertex;
            if (place < 0 || place >= targets.vertexCount) return false;
            if (targets.textureVertexCount > 0 && (texture < 0 || texture >= targets.textureVertexCount)) {
                texture = 0;
                badUVs = true;
            }
            content.faces.push_back(static_cast<int32_t>(place));
            content.faces.push_back(static_cast<int32_t>(texture));
            ++count;
            while (p != end && !QLM_Scan::IsBlank(*p)) ++p;
            while (p != end && QLM_Scan::IsBlank(*p)) ++p;
        }
        if (count < 3) return false;
        content.faces[start] = count;
        content.badUVs = content.badUVs || badUVs;
        return true;
    }

    const QLM_ObjTargets& targets;
    const bool internalNames;
    QLM_ObjChunkContent& content;
    int64_t vertex, textureVertex;
    const int64_t vertexEnd, textureVertexEnd;
    int64_t facesLeft;
};

} // namespace

std::vector<QLM_ObjChunk> QLM_CutObjBlock(std::string_view block) {
    std::vector<QLM_ObjChunk> chunks;
    const size_t share = block.size() / ChunksOfBlock + 1;
    for (size_t start = 0; start < block.size();) {
        size_t end = std::min(start + share, block.size());
        while (end < block.size() && block[end - 1] != '\n' && block[end - 1] != '\r') ++end;
        chunks.emplace_back().size = end - start;
        start = end;
    }
    return chunks;
}

void QLM_CountObjChunk(std::string_view text, const char* stopToken, QLM_ObjChunk& chunk) {
    QLM_LineScanner lines(text, QLM_ObjLineLimit);
    std::string_view line, rest;
    for (const char* start = text.data(); lines.Next(line); start = lines.GetCursor()) {
        if (IsStopLine(line, stopToken)) {
            chunk.size = static_cast<size_t>(start - text.data());
            chunk.stopLine = static_cast<size_t>(lines.GetCursor() - start);
            break;
        }
        switch (KeywordOf(line, rest)) {
        case Keyword::Vertex:
            ++chunk.loadedVertices;
            [[fallthrough]];
        case Keyword::UpperVertex:
            ++chunk.vertices;
            break;
        case Keyword::TextureVertex:
            ++chunk.textureVertices;
            break;
        case Keyword::Face:
            ++chunk.polygons;
            break;
        default:
            break;
        }
    }
}

void QLM_ReadObjChunk(std::string_view text, const QLM_ObjChunk& chunk, const QLM_ObjTargets& targets,
                      bool internalNames, QLM_ObjChunkContent& content) {
    ChunkReader reader(chunk, targets, internalNames, content);
    QLM_LineScanner lines(text, QLM_ObjLineLimit);
    std::string_view line;
    while (lines.Next(line)) reader.Line(line);
}
