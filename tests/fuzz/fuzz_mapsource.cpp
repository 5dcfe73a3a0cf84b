// Any bytes as the record of a map source in a scene with two layers.

#include "Core/OS/QLM_OS.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_MathTables.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

#include <cstdlib>

namespace {
QLM_MapManager* manager;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QLM_OS::SetMainThread();
    QLM_InitializeMathLookupTables();
    QLM_VirtualMemory_Initialize();
    manager = new QLM_MapManager;
    manager->CreateMapLayer("Paint");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (!stream) return 0;
    QLM_MaterialMapSource* map = manager->CreateMapSource();
    map->LoadFromStream_Text(stream, 0);
    fclose(stream);
    // What was read can be shown, whatever it was.
    if (map->GetByteCount() < 10'000'000) map->GetResolvedPixels();
    manager->DeleteAllMaps();
    QLM_ReleaseDeferredItems();
    QLM_OS::Get().recorded.clear();
    return 0;
}
