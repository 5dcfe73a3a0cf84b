// Any bytes as a packed OBJ file: unpacked, read and answered, within the room that the bytes justify.

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "Geometry/QLM_Mesh.h"

#include <cstdio>
#include <cstdlib>

namespace {
std::string path;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QLM_OS::SetMainThread();
    path = QLM_MakeTempFileName(QLM_OS::GetTempPath(), "objz");
    std::atexit([] { std::remove(path.c_str()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file || std::fwrite(data, 1, size, file) != size) abort();
    std::fclose(file);
    auto* mesh = new QLM_Mesh(nullptr);
    std::string error;
    if (QLM_ReadObjFile(path, mesh, {}, error) ? mesh->GetVCount() == 0 : error.empty()) abort();
    delete mesh;
    QLM_ReleaseDeferredItems();
    return 0;
}
