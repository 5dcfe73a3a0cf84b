#include "MapTestSupport.h"

#include <thread>

namespace {

using Bytes = std::vector<uint8_t>;

class ImageMap : public MapTest {};

TEST_F(ImageMap, SetDimensionsNotifiesOnlyOfAChange) {
    QLM_ImageMap map;
    EXPECT_EQ(map.GetPixels(), nullptr);
    map.SetDimensions(4, 3, 3);
    const uint32_t changes = map.GetChangeCounter();
    uint8_t* pixels = map.GetPixels();
    map.ClearToByte(9);
    map.SetDimensions(4, 3, 3);
    EXPECT_EQ(map.GetPixels(), pixels);
    EXPECT_EQ(PixelsOf(map), Bytes(36, 9));
    EXPECT_EQ(map.GetChangeCounter(), changes + 1) << "the clearing only";
    map.SetDimensions(4, 3, 1);
    EXPECT_EQ(map.GetChangeCounter(), changes + 2);
    EXPECT_EQ(map.GetByteCount(), 12u);
    map.SetDimensions(0, 3, 1);
    EXPECT_EQ(map.GetPixels(), nullptr);
}

TEST_F(ImageMap, ResizesByBothFilters) {
    QLM_ImageMap map;
    SetPixels(map, 2, 1, 1, {10, 20});
    const uint32_t changes = map.GetChangeCounter();
    map.Resize(2, 1, 0);
    map.Resize(0, 5, 0);
    EXPECT_EQ(map.GetChangeCounter(), changes);
    map.Resize(4, 1, 1);
    EXPECT_EQ(PixelsOf(map), (Bytes{10, 10, 20, 20}));
    SetPixels(map, 2, 1, 1, {10, 21});
    map.Resize(4, 2, 0); // 0, 0.5, 1 and 1.5 cut to the last column
    EXPECT_EQ(PixelsOf(map), (Bytes{10, 15, 21, 21, 10, 15, 21, 21}));

    QLM_ImageMap other;
    other.SetDimensions(4, 2, 3);
    other.ClearToByte(7);
    other.ResizeFrom(map, true);
    EXPECT_EQ(PixelsOf(other), Bytes(24, 7)) << "unequal depths: nothing happens";
    other.SetDimensions(2, 1, 1);
    other.ResizeFrom(map, true);
    EXPECT_EQ(PixelsOf(other), (Bytes{10, 21}));
}

TEST_F(ImageMap, ClearsToColours) {
    QLM_ImageMap map;
    map.SetDimensions(3, 3, 4);
    const float color[4] = {0.5f, -1.0f, 2.0f, 0.25f};
    map.ClearToColor(color, 3);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(memcmp(map.GetPixels() + i * 4, "\x7f\0\xff\xff", 4), 0) << i;
    map.ClearToColor(color, 4);
    EXPECT_EQ(map.GetPixels()[35], 63);
    map.SetDimensions(5, 1, 1);
    map.ClearToColor(color, 3);
    EXPECT_EQ(PixelsOf(map), Bytes(5, 127));
    EXPECT_EQ(RaisedBy([&] { map.ClearToColor(color, 2); }),
              "color depth 2 not supported in QLM_ImageMap::ClearToColor()");
}

TEST_F(ImageMap, ChangesDepth) {
    QLM_ImageMap map;
    SetPixels(map, 2, 1, 1, {3, 250});
    map.SetColorDepth(3);
    EXPECT_EQ(PixelsOf(map), (Bytes{3, 3, 3, 250, 250, 250}));
    SetPixels(map, 2, 1, 3, {1, 2, 5, 255, 255, 254});
    map.SetColorDepth(1);
    EXPECT_EQ(PixelsOf(map), (Bytes{2, 254}));
    SetPixels(map, 1, 1, 3, {1, 2, 3});
    map.SetColorDepth(4);
    EXPECT_EQ(PixelsOf(map), (Bytes{1, 2, 3, 255}));
    EXPECT_EQ(RaisedBy([&] { map.SetColorDepth(3); }), "Case not yet supported in SetColorDepth, 4 3");
    EXPECT_EQ(PixelsOf(map), (Bytes{1, 2, 3, 255}));
    const uint32_t changes = map.GetChangeCounter();
    map.Invert();
    EXPECT_EQ(PixelsOf(map), (Bytes{254, 253, 252, 0}));
    EXPECT_EQ(map.GetChangeCounter(), changes);
}

TEST_F(ImageMap, OwnershipMovesWithTheBlock) {
    QLM_ImageMap source, target;
    SetPixels(source, 2, 1, 3, {1, 2, 3, 4, 5, 6});
    const uint8_t* block = source.GetPixels();
    source.SwapOut();
    target.AssumeOwnershipOfPixelData(source);
    EXPECT_EQ(PixelsOf(target), (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(target.GetWidth(), 2u);
    EXPECT_FALSE(source.HasPixels());
    EXPECT_EQ(source.GetPixels(), nullptr);
    EXPECT_EQ(source.GetWidth() + source.GetHeight(), 0u);

    block = target.GetPixels();
    target.AssumeOwnershipOfPixelData(target);
    target.CreateWithPixelData(target.GetPixels(), 3, 2, 1, true);
    EXPECT_EQ(target.GetPixels(), block) << "its own block under another geometry";
    EXPECT_EQ(PixelsOf(target), (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST_F(ImageMap, CopiesWithAndWithoutANewBlock) {
    QLM_ImageMap source, target;
    SetPixels(source, 3, 2, 1, {1, 2, 3, 4, 5, 6});
    target.Copy(source);
    EXPECT_EQ(PixelsOf(target), (Bytes{1, 2, 3, 4, 5, 6}));
    const uint32_t changes = target.GetChangeCounter();
    const uint8_t* block = target.GetPixels();
    source.ClearToByte(8);
    target.CopyRect(source, 1, 1, 100, 100);
    EXPECT_EQ(PixelsOf(target), (Bytes{1, 2, 3, 4, 8, 8}));
    target.CopyRect(source, 3, 0, 1, 1);
    EXPECT_EQ(PixelsOf(target), (Bytes{1, 2, 3, 4, 8, 8}));
    target.Copy(source);
    EXPECT_EQ(PixelsOf(target), Bytes(6, 8));
    EXPECT_EQ(target.GetPixels(), block);
    EXPECT_EQ(target.GetChangeCounter(), changes);
    source.SetDimensions(0, 0, 3);
    target.Copy(source);
    EXPECT_FALSE(target.HasPixels());
}

TEST_F(ImageMap, EvictedPixelsComeBack) {
    QLM_ImageMap map;
    const Bytes samples = MixedSamples(64 * 64 * 3);
    SetPixels(map, 64, 64, 3, samples);
    map.ClearRecentlyUsed();
    map.SwapOut();
    map.SwapOut();
    EXPECT_TRUE(map.HasPixels());
    EXPECT_FALSE(map.IsRecentlyUsed());
    std::vector<std::thread> readers;
    std::atomic<int> wrong{0};
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&] { wrong += memcmp(map.GetPixels(), samples.data(), samples.size()) != 0; });
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(map.IsRecentlyUsed());

    // A block in use stays where it is.
    uint8_t* block = map.GetPixels();
    map.GetLock().Lock();
    std::thread([&] { map.SwapOut(); }).join();
    EXPECT_EQ(map.GetPixels(), block);
    map.GetLock().Unlock();

    map.SwapOut();
    map.SetDimensions(1, 1, 1);
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 0u) << "an evicted block that nobody wants any more is given up";
}

TEST_F(ImageMap, CopiesBothWaysAtOnce) {
    QLM_ImageMap a, b;
    SetPixels(a, 8, 8, 1, Bytes(64, 1));
    SetPixels(b, 8, 8, 1, Bytes(64, 2));
    std::thread other([&] { for (int i = 0; i < 500; ++i) a.Copy(b); });
    for (int i = 0; i < 500; ++i) b.Copy(a);
    other.join();
    EXPECT_EQ(PixelsOf(a), PixelsOf(b));
}

TEST_F(ImageMap, ResizedCopyOfATipIsItsPicture) {
    QLM_ImageMap map;
    SetPixels(map, 2, 1, 1, {0, 255});
    EXPECT_EQ(map.GetResizedCopy(4, 1, false), nullptr);
    QLM_ImageMap* copy = map.GetResizedCopy(4, 1, true);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->GetDepth(), 3);
    // Resized 0 127 255 255, brightened 0 179 255 255, inverted.
    EXPECT_EQ(PixelsOf(*copy), (Bytes{255, 255, 255, 76, 76, 76, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(map.GetResizedCopy(4, 1, false), copy);
    SetPixels(map, 1, 1, 1, {0});
    EXPECT_EQ(map.GetResizedCopy(4, 1, false), nullptr) << "the picture that it showed is gone";

    SetPixels(map, 1, 1, 3, {1, 2, 3});
    EXPECT_EQ(PixelsOf(*map.GetResizedCopy(2, 1, true)), (Bytes{1, 2, 3, 1, 2, 3}));
}

TEST_F(ImageMap, PreviewSidesAndSamples) {
    const uint32_t sides[][2] = {{1, 1},     {3, 4},     {100, 128},  {255, 256},  {256, 256}, {300, 256}, {383, 256},
                                 {384, 512}, {767, 512}, {768, 1024}, {1023, 1024}, {5000, 1024}};
    for (const auto& side : sides) EXPECT_EQ(QLM_PreviewSide(side[0]), side[1]) << side[0];

    QLM_ImageMap map;
    Bytes rgb;
    uint32_t width = 0, height = 0;
    EXPECT_FALSE(map.BuildPreview(rgb, width, height));
    SetPixels(map, 3, 1, 3, {1, 1, 1, 2, 2, 2, 3, 3, 3});
    ASSERT_TRUE(map.BuildPreview(rgb, width, height));
    EXPECT_EQ(rgb, (Bytes{1, 1, 1, 1, 1, 1, 2, 2, 2, 3, 3, 3})); // columns 0, 0.75, 1.5, 2.25
    map.SetDimensions(5000, 100, 1);
    ASSERT_TRUE(map.BuildPreview(rgb, width, height));
    EXPECT_EQ(width, 1024u);
    EXPECT_EQ(height, 128u);
    EXPECT_EQ(rgb, Bytes(1024 * 128 * 3, 255)) << "grey maps have a white preview";
    // Without an engine the checker is black.
    SetPixels(map, 2, 1, 4, {200, 100, 50, 255, 200, 100, 50, 127});
    ASSERT_TRUE(map.BuildPreview(rgb, width, height));
    EXPECT_EQ(rgb, (Bytes{200, 100, 50, 99, 49, 24}));

    EXPECT_TRUE(map.DoesPreviewNeedUpdate());
    map.UpdatePreviewTexture();
    EXPECT_TRUE(map.DoesPreviewNeedUpdate()) << "nothing can be uploaded without a context";
}

/// The neighbourhood sums of an RGBA picture, one pixel at a time.
struct Neighbours {
    int sum[4] = {}, opaqueSum[4] = {}, opaque = 0;
    Neighbours(const Bytes& image, int width, int height, int x, int y) {
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                if (x + dx < 0 || x + dx >= width || y + dy < 0 || y + dy >= height) continue;
                const uint8_t* pixel = &image[size_t((y + dy) * width + x + dx) * 4];
                opaque += pixel[3] != 0;
                for (int c = 0; c < 4; ++c) {
                    sum[c] += pixel[c];
                    if (pixel[3]) opaqueSum[c] += pixel[c];
                }
            }
    }
};

TEST_F(ImageMap, DilatesAndBlursLikeTheSlowVersion) {
    const int width = 23, height = 17;
    Bytes start = MixedSamples(size_t(width * height) * 4);
    for (int i = 0; i < width * height; ++i) { // an opaque part, an empty one, and one with some edges of low alpha
        const int x = i % width;
        uint8_t& alpha = start[size_t(i) * 4 + 3];
        if (x < 8) alpha = 255;
        else if (x > 15 || i % 5 != 0) alpha = 0;
    }

    for (int passes = 1; passes <= 3; ++passes) {
        Bytes dilated = start, blurred = start;
        for (int pass = 0; pass < passes; ++pass) {
            const Bytes before = dilated, alphaBefore = blurred;
            for (int i = 0; i < width * height; ++i) {
                const Neighbours colors(before, width, height, i % width, i / width);
                const int own = before[size_t(i) * 4 + 3];
                for (size_t c = 0; c < 4 && colors.opaque; ++c) {
                    const int mean = colors.opaqueSum[c] / colors.opaque;
                    dilated[size_t(i) * 4 + c] =
                        uint8_t(c == 3 ? mean : mean + (before[size_t(i) * 4 + c] - mean) * own / 255);
                }
                blurred[size_t(i) * 4 + 3] =
                    uint8_t(Neighbours(alphaBefore, width, height, i % width, i / width).sum[3] / 9);
            }
        }
        for (size_t i = 3; i < start.size(); i += 4) dilated[i] = start[i];

        QLM_ImageMap map;
        SetPixels(map, width, height, 4, start);
        map.DilateColorUnderAlpha(passes);
        EXPECT_EQ(PixelsOf(map), dilated) << passes;
        SetPixels(map, width, height, 4, start);
        map.BlurAlpha(passes);
        EXPECT_EQ(PixelsOf(map), blurred) << passes;
    }

    QLM_ImageMap map;
    SetPixels(map, 4, 1, 4, {100, 60, 20, 255, 0, 0, 0, 0, 0, 0, 0, 0, 7, 7, 7, 0});
    map.DilateColorUnderAlpha(2);
    EXPECT_EQ(PixelsOf(map), (Bytes{100, 60, 20, 255, 100, 60, 20, 0, 100, 60, 20, 0, 7, 7, 7, 0}));
    SetPixels(map, 1, 1, 3, {1, 2, 3});
    map.DilateColorUnderAlpha(1);
    map.BlurAlpha(1);
    EXPECT_EQ(PixelsOf(map), (Bytes{1, 2, 3}));
}

TEST_F(ImageMap, SavesAndLoadsEachDepth) {
    const TestFolder folder;
    std::string error;
    QLM_ImageMap map, loaded;
    SetPixels(map, 2, 2, 4, MixedSamples(16));
    ASSERT_TRUE(map.SaveToFile(folder.path + "a.png", error)) << error;
    ASSERT_TRUE(loaded.LoadFromFile(folder.path + "a.png", error)) << error;
    EXPECT_EQ(loaded.GetDepth(), 4);
    EXPECT_EQ(PixelsOf(loaded), PixelsOf(map));

    SetPixels(map, 1, 2, 1, {40, 90});
    ASSERT_TRUE(map.SaveToFile(folder.path + "g.png", error)) << error;
    ASSERT_TRUE(loaded.LoadFromFile(folder.path + "g.png", error)) << error;
    EXPECT_EQ(PixelsOf(loaded), (Bytes{40, 40, 40, 90, 90, 90})) << "row 0 is the bottom row on both ways";
    SetPixels(map, 1, 1, 3, {1, 2, 5});
    ASSERT_TRUE(map.SaveToFile(folder.path + "c.png", error)) << error;
    ASSERT_TRUE(loaded.LoadGreyFromFile(folder.path + "c.png", error)) << error;
    EXPECT_EQ(loaded.GetDepth(), 1);
    EXPECT_EQ(PixelsOf(loaded), Bytes{2});

    // What a load loses is told.
    const std::string deep = QLM_SOURCE_DIR "/tests/fuzz/corpus/image/rgb16.png";
    auto& messages = QLM_OS::Get().recorded;
    messages.clear();
    QLM_ImageMap other;
    ASSERT_TRUE(other.LoadFromFile(deep, error) && other.LoadGreyFromFile(deep, error)) << error;
    ASSERT_EQ(messages.size(), 2u);
    for (const auto& message : messages) EXPECT_EQ(message.text, deep + ": 16 bits a sample were cut to 8");

    EXPECT_FALSE(loaded.LoadFromFile(folder.path + "none.png", error));
    EXPECT_NE(error.find("none.png"), std::string::npos);
    EXPECT_EQ(PixelsOf(loaded), Bytes{2});
    QLM_ImageMap empty;
    EXPECT_FALSE(empty.SaveToFile(folder.path + "empty.png", error));
}

} // namespace
