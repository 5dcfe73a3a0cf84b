// Any bytes as a picture file: the loader answers, within memory that the bytes justify.

#include "Core/OS/QLM_OS.h"
#include "Images/QLM_ImageLoader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QLM_OS::SetMainThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("picture", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != ssize_t(size)) abort();

    QLM_ImageInfo info;
    QLM_LoadedImage image;
    std::string error;
    const bool hasHeader = QLM_ReadImageInfo(path, info, error);
    // A large picture may be legal, but fills memory and time without reaching new code.
    if (hasHeader && uint64_t(info.width) * info.height > 4'000'000) return 0;
    if (QLM_LoadImage(path, image, error)) {
        if (!hasHeader || image.color.size() != size_t(image.width) * image.height * 3) abort();
        if (!image.alpha.empty() && image.alpha.size() != size_t(image.width) * image.height) abort();
    } else if (error.empty() || error.find('\n') != std::string::npos) abort();
    return 0;
}
