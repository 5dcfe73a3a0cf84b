// Pictures: resampling, PNG files and previews of maps. Peers work on the same picture in the same run.

#include "Core/OS/QLM_Memory.h"
#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_ImageMap.h"

#include <benchmark/benchmark.h>
#include <png.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

/// Looks like a painted map: soft colour, fine grain on a part of it, and flat parts around islands.
std::vector<uint8_t> MakePicture(uint32_t side, int depth) {
    std::vector<uint8_t> block(size_t(side) * side * size_t(depth));
    uint32_t noise = 1;
    uint8_t* out = block.data();
    for (uint32_t y = 0; y < side; y++) {
        for (uint32_t x = 0; x < side; x++) {
            const bool flat = (x / 256 + y / 256) % 4 == 0;
            for (int c = 0; c < depth; c++) {
                noise = noise * 1664525 + 1013904223;
                const float soft = 128 + 90 * std::sin(float(x) * 0.004f + float(c)) * std::cos(float(y) * 0.003f);
                *out++ = flat ? uint8_t(200 - 30 * c) : uint8_t(int(soft) + int(noise >> 28) - 8);
            }
        }
    }
    return block;
}

std::string ScratchFile(const std::string& name) { return (std::filesystem::temp_directory_path() / name).string(); }

template <class Resize> void Resample(benchmark::State& state, const Resize& resize) {
    constexpr uint32_t from = 8192, to = 2048;
    const std::vector<uint8_t> source = MakePicture(from, 3);
    std::vector<uint8_t> target(size_t(to) * to * 3);
    for (auto _ : state) resize(target.data(), to, to, source.data(), from, from, 3);
    state.counters["source_side"] = from;
}
void ResizeBilinear(benchmark::State& state) { Resample(state, ResizeImage); }
void ResizeNearest(benchmark::State& state) { Resample(state, ResizeImageClosest); }
BENCHMARK(ResizeBilinear)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ResizeNearest)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The bytes of the source, once.
void ResizeCopyOfSource(benchmark::State& state) {
    const std::vector<uint8_t> source = MakePicture(8192, 3);
    std::vector<uint8_t> target(source.size());
    for (auto _ : state) {
        memcpy(target.data(), source.data(), source.size());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(ResizeCopyOfSource)->Unit(benchmark::kMillisecond)->UseRealTime();

constexpr uint32_t pngSide = 4096;

void SavePNG(benchmark::State& state) {
    const int depth = int(state.range(0));
    const std::vector<uint8_t> block = MakePicture(pngSide, depth);
    const std::string path = ScratchFile("quillmere_bench.png");
    std::string error;
    for (auto _ : state)
        if (!SaveMapToFile(path, block.data(), pngSide, pngSide, depth == 4, error)) state.SkipWithError(error.c_str());
    state.counters["MB"] = double(std::filesystem::file_size(path)) / 1e6;
}
BENCHMARK(SavePNG)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

void SavePNGByLibrary(benchmark::State& state) {
    const std::vector<uint8_t> block = MakePicture(pngSide, 3);
    const std::string path = ScratchFile("quillmere_bench_library.png");
    for (auto _ : state) {
        FILE* file = fopen(path.c_str(), "wb");
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        png_init_io(png, file);
        png_set_compression_level(png, int(state.range(0)));
        png_set_IHDR(png, info, pngSide, pngSide, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE,
                     PNG_FILTER_TYPE_BASE);
        png_write_info(png, info);
        for (uint32_t y = 0; y < pngSide; y++) png_write_row(png, block.data() + size_t(y) * pngSide * 3);
        png_write_end(png, nullptr);
        png_destroy_write_struct(&png, &info);
        fclose(file);
    }
    state.counters["MB"] = double(std::filesystem::file_size(path)) / 1e6;
}
BENCHMARK(SavePNGByLibrary)->Arg(1)->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

void LoadPNG(benchmark::State& state) {
    const int depth = int(state.range(0));
    const std::vector<uint8_t> block = MakePicture(pngSide, depth);
    const std::string path = ScratchFile("quillmere_bench.png");
    std::string error;
    SaveMapToFile(path, block.data(), pngSide, pngSide, depth == 4, error);
    for (auto _ : state) {
        uint8_t* pixels = nullptr;
        uint32_t width, height;
        bool alpha;
        int loadedDepth;
        if (!LoadImageFile(path, pixels, width, height, alpha, loadedDepth, error)) state.SkipWithError(error.c_str());
        QLM_Free(pixels);
    }
}
BENCHMARK(LoadPNG)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

void LoadPNGByLibrary(benchmark::State& state) {
    const std::vector<uint8_t> block = MakePicture(pngSide, 3);
    const std::string path = ScratchFile("quillmere_bench.png");
    std::string error;
    SaveMapToFile(path, block.data(), pngSide, pngSide, false, error);
    std::vector<uint8_t> pixels(block.size());
    for (auto _ : state) {
        png_image image = {};
        image.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_file(&image, path.c_str())) state.SkipWithError(image.message);
        image.format = PNG_FORMAT_RGB;
        png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr);
    }
    if (pixels == block) state.SkipWithError("the rows are not flipped");
}
BENCHMARK(LoadPNGByLibrary)->Unit(benchmark::kMillisecond)->UseRealTime();

void BuildPreview(benchmark::State& state) {
    constexpr uint32_t side = 8192;
    const int depth = int(state.range(0));
    std::vector<uint8_t> block = MakePicture(side, depth);
    QLM_ImageMap map;
    map.CreateWithPixelData(block.data(), side, side, uint8_t(depth), false);
    std::vector<uint8_t> rgb;
    uint32_t width, height;
    for (auto _ : state) map.BuildPreview(rgb, width, height);
}
BENCHMARK(BuildPreview)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

void MapOperations(benchmark::State& state) {
    constexpr uint32_t side = 4096;
    std::vector<uint8_t> block = MakePicture(side, 4);
    QLM_ImageMap map;
    map.CreateWithPixelData(block.data(), side, side, 4, false);
    for (auto _ : state) {
        switch (state.range(0)) {
        case 0:
            map.Invert();
            break;
        case 1:
            map.DilateColorUnderAlpha(1);
            break;
        default:
            map.BlurAlpha(1);
        }
    }
    static const char* const names[] = {"Invert", "DilateColorUnderAlpha", "BlurAlpha"};
    state.SetLabel(names[state.range(0)]);
}
BENCHMARK(MapOperations)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
