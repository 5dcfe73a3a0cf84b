#pragma once
// Records in memory, and what a reader must survive.

#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Math/QLM_Random.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

/// What `write(FILE*)` wrote.
template <class Write> std::string WriteText(Write write) {
    char* data = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&data, &size);
    write(stream);
    std::fclose(stream);
    const std::string text(data, size);
    std::free(data);
    return text;
}
inline std::string WriteObject(QLM_Object& object) {
    return WriteText([&](FILE* stream) { object.SaveToStream_Text(stream); });
}
inline std::string WriteTree(QLM_TreeGroup& tree) {
    return WriteText([&](FILE* stream) { tree.SaveToStream_Text(stream); });
}

/// Reads an item's block from where its "{" is.
inline bool ReadBlock(QLM_BaseClass& item, std::string bytes) {
    if (bytes.empty()) return true;
    FILE* stream = fmemopen(bytes.data(), bytes.size(), "rb");
    const bool good = item.LoadFromStream_Text(stream, 0);
    std::fclose(stream);
    return good;
}

/// Leaves out the lines that differ with every run.
inline std::string WithoutIDs(const std::string& text) {
    std::string kept;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const size_t word = std::min(text.find_first_not_of('\t', at), end);
        if (text.compare(word, 3, "ID\t") != 0) kept.append(text, at, end - at);
        at = end;
    }
    return kept;
}

/// Reads a record, checks that all that hangs on the mesh is in step, welds or writes some of them. True when it was
/// read whole.
inline bool ReadAndUse(const std::string& bytes) {
    auto* object = new QLM_Object;
    const bool good = ReadBlock(*object, bytes);
    if (QLM_Mesh* mesh = object->GetMesh()) {
        for (int p = 0; p < mesh->GetPCount(); ++p)
            for (int i = 0; i < mesh->GetPolygonVertexCount(p); ++i) {
                const int v = mesh->GetPolygonVertex(p, i), t = mesh->GetPolygonTextureVertex(p, i);
                EXPECT_TRUE(v >= 0 && v < mesh->GetVCount() && t >= -1 && t < mesh->GetVTCount());
                EXPECT_GT(mesh->GetVertexPolygonCount(v), 0);
            }
        EXPECT_TRUE(mesh->GetMorphTree()) << "a morph can be made";
        EXPECT_GE(mesh->GetGroupCount(), 1);
        EXPECT_GE(mesh->GetMaterialCount(), 1);
        EXPECT_EQ(static_cast<int>(mesh->ResolvedVertices.GetCount()), mesh->GetVCount());
        EXPECT_LE(mesh->GetVisiblePolygonCount(), mesh->GetPCount());
        if (bytes.size() % 4 == 0 && mesh->GetVCount() < 5000) {
            mesh->Unweld();
            mesh->Weld(0.01f, false, false, false);
            object->ResolveMorphsAndBounds(true);
        }
    }
    if (bytes.size() % 4 == 1) WriteObject(*object);
    delete object;
    QLM_ReleaseDeferredItems();
    return good;
}

/// Changes bytes, numbers, or the order of parts.
inline void Mutate(std::string& bytes, QLM_RandomGenerator& random) {
    if (bytes.size() < 4) return;
    const size_t at = random.Next(static_cast<uint32_t>(bytes.size() - 2));
    switch (random.Next(6)) {
    case 0: bytes[at] = static_cast<char>(random.Next(256)); break;
    case 1: bytes[at] = static_cast<char>(bytes[at] ^ (1 << random.Next(8))); break;
    case 2: bytes.erase(at, 1 + random.Next(40)); break;
    case 3:
        bytes.insert(at, bytes.substr(random.Next(static_cast<uint32_t>(bytes.size())), 1 + random.Next(200)));
        break;
    case 4: bytes.insert(at, std::to_string(random.Next(1 << random.Next(31)))); break;
    default: { // a number of a line
        const size_t tab = bytes.find('\t', at);
        if (tab == std::string::npos || tab + 1 >= bytes.size()) return;
        size_t end = tab + 1;
        while (end < bytes.size() && std::strchr("0123456789.-", bytes[end])) ++end;
        bytes.replace(tab + 1, end - tab - 1, std::to_string(static_cast<int32_t>(random.Next(1 << random.Next(31)))));
    }
    }
}

/// False where a sanitizer's own memory would be measured.
constexpr bool IsMemoryMeasured() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}
inline void ResetPeakMemory() {
    if (FILE* file = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", file);
        std::fclose(file);
    }
}
/// The greatest resident size since the reset, in bytes.
inline int64_t PeakMemory() {
    char line[256];
    long long kilobytes = 0;
    FILE* file = std::fopen("/proc/self/status", "r");
    while (file && std::fgets(line, sizeof line, file))
        if (std::strncmp(line, "VmHWM:", 6) == 0) std::sscanf(line + 6, "%lld", &kilobytes);
    if (file) std::fclose(file);
    return kilobytes * 1024;
}
