// Any bytes as an object's record: what it makes is a sound mesh that can be welded, resolved and written.

#include "Core/OS/QLM_OS.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QLM_OS::SetMainThread();
    QLM_VirtualMemory_Initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    static FILE* const sink = std::fopen("/dev/null", "wb");
    if (!file || !sink) abort();
    auto* object = new QLM_Object;
    object->LoadFromStream_Text(file, 0);
    std::fclose(file);
    if (QLM_Mesh* mesh = object->GetMesh()) {
        for (int p = 0; p < mesh->GetPCount(); ++p)
            for (int i = 0; i < mesh->GetPolygonVertexCount(p); ++i) {
                const int v = mesh->GetPolygonVertex(p, i), vt = mesh->GetPolygonTextureVertex(p, i);
                if (v < 0 || v >= mesh->GetVCount() || vt < -1 || vt >= mesh->GetVTCount()) abort();
            }
        if (mesh->GetVCount() < 5000) {
            mesh->Weld(0.01f, false, false, false);
            object->ResolveMorphsAndBounds(true);
        }
    }
    object->SaveToStream_Text(sink);
    delete object;
    QLM_ReleaseDeferredItems();
    QLM_OS::Get().recorded.clear();
    return 0;
}
