// Any bytes as a material library on a mesh with two materials.

#include "Core/OS/QLM_OS.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "Geometry/QLM_Mesh.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace {
QLM_Mesh* mesh;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QLM_OS::SetMainThread();
    mesh = new QLM_Mesh(nullptr);
    for (const char* name : {"a", "b"}) {
        auto* material = new QLM_Material;
        material->SetNameText(name);
        mesh->AddMaterial(material);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("materials", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != ssize_t(size)) abort();
    QLM_ReadMtlFile(path, mesh, true);
    if (mesh->GetMaterialCount() != 2) abort();
    return 0;
}
