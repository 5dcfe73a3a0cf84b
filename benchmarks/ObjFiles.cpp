// OBJ files of a million quads, in and out, beside another program where it is installed and beside plain writing.

#include "Scene.h"

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Seconds of a command, or 0 when it isn't there.
double CommandSeconds(const std::string& command) {
    if (std::system("command -v assimp >/dev/null 2>&1") != 0) return 0;
    const auto start = std::chrono::steady_clock::now();
    if (std::system(command.c_str()) != 0) return 0;
    return SecondsSince(start);
}

void ImportMillionQuads(benchmark::State& state) {
    const std::string path = GridFile(1000, 1000);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        QLM_Object* object = ImportForBenchmark(path, 64, 64);
        state.SetIterationTime(SecondsSince(start));
        if (!object || object->GetMesh()->GetPCount() != 1000000) state.SkipWithError("the grid did not load");
    }
    state.counters["peak_MB"] = PeakMegabytes();
    state.counters["assimp_s"] = CommandSeconds("assimp info " + path + " --raw >/dev/null 2>&1");
}
BENCHMARK(ImportMillionQuads)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

/// Seconds that the same number of bytes take through the same safe writer: the least that an export can take.
double PlainWriteSeconds(const std::string& path, uint64_t bytes) {
    const std::vector<char> block(1 << 20, ' ');
    const auto start = std::chrono::steady_clock::now();
    QLM_SafeFileWriter writer(path);
    for (uint64_t written = 0; written < bytes; written += block.size())
        std::fwrite(block.data(), 1, block.size(), writer.GetStream());
    writer.Commit();
    return SecondsSince(start);
}

void ExportMillionQuads(benchmark::State& state) {
    QLM_Object* object = ImportForBenchmark(GridFile(1000, 1000), 64, 64);
    const std::string folder = QLM_OS::GetTempPath(), input = GridFile(1000, 1000);
    const std::string path = folder + "quillmere-out.obj", copy = folder + "quillmere-plain.obj";
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const bool good =
            object && QLM_GetManagers().GetIOManager()->ExportObjectFile(object->GetMesh(), path, false, true);
        state.SetIterationTime(SecondsSince(start));
        if (!good) state.SkipWithError("the grid was not written");
    }
    std::error_code failure;
    state.counters["plain_write_s"] = PlainWriteSeconds(copy, std::filesystem::file_size(path, failure));
    state.counters["assimp_s"] = CommandSeconds("assimp export " + input + " " + copy + " >/dev/null 2>&1");
    for (const char* name : {"quillmere-out.obj", "quillmere-out.mtl", "quillmere-plain.obj", "quillmere-plain.mtl"})
        QLM_DeleteFile(folder + name);
}
BENCHMARK(ExportMillionQuads)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace
