#pragma once
// What the tests of this room share.

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Maps/QLM_ImageMap.h"
#include "Math/QLM_MathTables.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

#include <gtest/gtest.h>

#include <filesystem>

/// Tables and virtual memory for a test's life.
class MapTest : public testing::Test {
  protected:
    void SetUp() override {
        QLM_InitializeMathLookupTables();
        QLM_VirtualMemory_Initialize();
    }
    void TearDown() override {
        QLM_VirtualMemory_Shutdown();
        QLM_FreeMathLookupTables();
    }
};

/// A folder that goes with the test.
class TestFolder {
  public:
    TestFolder() : stem(QLM_MakeTempFileName(QLM_OS::GetTempPath(), "tmp")), path(stem + ".d/") {
        QLM_CreateDirectory(path);
    }
    ~TestFolder() {
        std::filesystem::remove_all(path);
        QLM_DeleteFile(stem);
    }
    const std::string stem, path;
};

inline void SetPixels(QLM_ImageMap& map, uint32_t width, uint32_t height, uint8_t depth, std::vector<uint8_t> samples) {
    ASSERT_EQ(samples.size(), size_t(width) * height * depth);
    map.CreateWithPixelData(samples.data(), width, height, depth, false);
}

inline std::vector<uint8_t> PixelsOf(QLM_ImageMap& map) {
    const uint8_t* pixels = map.GetPixels();
    return pixels ? std::vector<uint8_t>(pixels, pixels + map.GetByteCount()) : std::vector<uint8_t>();
}

/// Samples that repeat in no simple way.
inline std::vector<uint8_t> MixedSamples(size_t count, uint32_t seed = 1) {
    std::vector<uint8_t> samples(count);
    for (uint8_t& sample : samples) {
        seed = seed * 1664525u + 1013904223u;
        sample = uint8_t(seed >> 24);
    }
    return samples;
}

template <class Call> std::string RaisedBy(Call&& call) {
    try {
        call();
    } catch (const QLM_Exception& raised) { return raised.what(); }
    return "";
}
