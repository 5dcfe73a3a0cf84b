// Any bytes as an OBJ file: the reader answers, and what it made is a sound mesh.

#include "Core/OS/QLM_OS.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "Geometry/QLM_Mesh.h"

#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QLM_OS::SetMainThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (!file) abort();
    auto* mesh = new QLM_Mesh(nullptr);
    std::string error;
    QLM_ObjReadOptions options;
    options.blockBytes = 1 << 14;
    options.useInternalNames = size % 2;
    if (QLM_LoadObjDataFromStream(file, "a.obj", mesh, options, error)) {
        for (int p = 0; p < mesh->GetPCount(); ++p)
            for (int i = 0; i < mesh->GetPolygonVertexCount(p); ++i) {
                const int v = mesh->GetPolygonRawVertex(p, i), vt = mesh->GetPolygonTextureVertex(p, i);
                if (v < 0 || v >= mesh->GetVCount() || vt < -1 || vt >= mesh->GetVTCount()) abort();
            }
    } else if (error.empty()) {
        abort();
    }
    std::fclose(file);
    delete mesh;
    QLM_ReleaseDeferredItems();
    return 0;
}
