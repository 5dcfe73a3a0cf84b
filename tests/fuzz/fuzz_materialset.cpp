// Any bytes as a material set: read or refused with a reason, and what was read can be asked and written.

#include "Core/OS/QLM_OS.h"
#include "Maps/QLM_MaterialSets.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QLM_OS::SetMainThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("set", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    static FILE* const nowhere = fopen("/dev/null", "wb");
    static QLM_Material material;
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != ssize_t(size)) abort();
    {
        QLM_MaterialSets sets;
        std::string error;
        QLM_List<QLM_Material*> materials = {&material};
        material.SetNameText("A");
        double rating = 0;
        if (QLM_MaterialSet* set = sets.LoadFile(path, error)) {
            if (sets.FindBest(materials, rating) != set || (rating != 0.0 && rating != 1.0)) abort();
            set->SaveToStream_Text(nowhere);
        } else if (error.empty()) {
            abort();
        }
    }
    QLM_ReleaseDeferredItems();
    return 0;
}
