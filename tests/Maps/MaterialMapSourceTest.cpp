#include "MapTestSupport.h"

#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_ImageMapBuffer.h"
#include "Maps/QLM_MaterialMapSource.h"

#include <png.h>

namespace {

using Bytes = std::vector<uint8_t>;

class MaterialMapSource : public MapTest {};

/// One row of RGB pixels, one colour of which counts as transparent.
void WritePNGWithColourKey(const std::string& path, Bytes row, const uint8_t* key) {
    FILE* file = fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, png_uint_32(row.size() / 3), 1, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_color_16 color = {};
    color.red = key[0], color.green = key[1], color.blue = key[2];
    png_set_tRNS(png, info, nullptr, 0, &color);
    png_write_info(png, info);
    png_write_row(png, row.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    fclose(file);
}

TEST_F(MaterialMapSource, InitializesAndKeepsBackSlashes) {
    QLM_MaterialMapSource map;
    EXPECT_EQ(map.GetPixels(), nullptr);
    EXPECT_EQ(map.DirtyCount, 0);
    map.SetMapFileName("C:\\maps/skin/a.png");
    EXPECT_EQ(map.GetMapFileName(), "C:\\maps\\skin\\a.png");
    const float color[3] = {0.5f, 1.5f, -0.5f};
    map.Initialize(2, 1, color);
    EXPECT_EQ(PixelsOf(map), (Bytes{127, 255, 0, 127, 255, 0}));
    EXPECT_EQ(map.GetMapFileName(), "");
    EXPECT_EQ(map.GetResolvedPixels(), map.GetPixels());
    EXPECT_EQ(map.GetResolvedMask(), nullptr);
    EXPECT_EQ(map.GetCurrentLayerData(true), &map);
    EXPECT_EQ(map.GetPixelsForRead(), map.GetPixels());
}

TEST_F(MaterialMapSource, MaskFollowsTheSize) {
    QLM_MaterialMapSource map;
    map.Initialize(4, 2, nullptr);
    EXPECT_FALSE(map.HasMaskSameSize());
    map.SetDimensions(2, 2, 3);
    EXPECT_FALSE(map.Mask.HasPixels()) << "sizing makes no mask";
    map.Mask.SetDimensions(2, 2, 1);
    map.Mask.ClearToByte(10);
    map.SetDimensions(2, 2, 3);
    EXPECT_EQ(PixelsOf(map.Mask), Bytes(4, 10)) << "nothing changed";
    map.ResizeWithLayers(4, 4);
    EXPECT_EQ(PixelsOf(map.Mask), Bytes(16, 10));
    EXPECT_EQ(map.GetResolvedMask(), map.GetMaskPixels());
    map.SetDimensions(1, 3, 3);
    EXPECT_EQ(PixelsOf(map.Mask), Bytes(3, 255));
    map.Mask.SetDimensions(5, 5, 1);
    EXPECT_EQ(map.GetResolvedMask(), nullptr) << "a mask of another size serves nobody";
    map.ClearToByte(1);
    map.ResizeWithLayers(30000, 1);
    EXPECT_EQ(map.GetWidth(), QLM_MaterialMapSource::MaximumSide);
}

TEST_F(MaterialMapSource, MarksCells) {
    QLM_MaterialMapSource map;
    const float corner[2] = {0.5f, 0.5f};
    map.MarkCellsDirty(corner, corner);
    EXPECT_EQ(map.DirtyCount, 0) << "an empty map has no cells";
    map.Initialize(256, 128, nullptr);
    EXPECT_EQ(map.DirtyCount, 4096);
    map.GetResolvedPixels();
    EXPECT_EQ(map.DirtyCount, 0);

    // Cells are 4 x 2 pixels. u 0.5 is pixel 128: 126 to 130 are columns 31 and 32; v 0.5 is pixel 64: 62 to 66 are
    // rows 31 to 33.
    const uint32_t changes = map.GetChangeCounter();
    map.OnPartialMapChanged(corner, corner);
    const std::vector<uint32_t> around = {31 * 64 + 31, 31 * 64 + 32, 32 * 64 + 31,
                                          32 * 64 + 32, 33 * 64 + 31, 33 * 64 + 32};
    EXPECT_EQ(map.GetDirtyCells(), around);
    EXPECT_GT(map.GetChangeCounter(), changes);
    map.MarkCellsDirty(corner, corner);
    EXPECT_EQ(map.DirtyCount, 6) << "a dirty cell is listed once";

    map.GetResolvedPixels();
    const float low[2] = {0.999f, -5.0f}, high[2] = {7.0f, -4.0f};
    map.MarkCellsDirty(low, high);
    EXPECT_EQ(map.GetDirtyCells(), (std::vector<uint32_t>{63})) << "cut to the last column and the first row";
    const float whole[2] = {0.0f, 0.0f}, end[2] = {1.0f, 1.0f};
    map.MarkCellsDirty(whole, end);
    EXPECT_EQ(map.DirtyCount, 4096);
}

TEST_F(MaterialMapSource, LoadsAlphaAsMask) {
    const TestFolder folder;
    std::string error;
    const uint8_t rgba[] = {1, 2, 3, 0, 4, 5, 6, 100, 7, 8, 9, 255, 10, 11, 12, 50};
    ASSERT_TRUE(SaveMapToFile(folder.path + "alpha.png", rgba, 4, 1, true, error)) << error;
    const uint8_t rgb[] = {1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(SaveMapToFile(folder.path + "plain.png", rgb, 1, 2, false, error)) << error;

    QLM_MaterialMapSource map;
    ASSERT_TRUE(map.LoadFromFileWithAlpha(folder.path + "alpha.png", error)) << error;
    EXPECT_EQ(map.GetDepth(), 3);
    EXPECT_EQ(PixelsOf(map), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(PixelsOf(map.Mask), (Bytes{0, 100, 255, 50}));
    EXPECT_EQ(map.aspect, 4.0f);
    EXPECT_EQ(map.DirtyCount, 4096);
    ASSERT_TRUE(map.SaveToFile(folder.path + "again.png", error)) << error;
    QLM_MaterialMapSource again;
    ASSERT_TRUE(again.LoadFromFile(folder.path + "again.png", error)) << error;
    EXPECT_EQ(PixelsOf(again), PixelsOf(map));
    EXPECT_EQ(PixelsOf(again.Mask), PixelsOf(map.Mask));

    EXPECT_FALSE(map.LoadFromFileWithAlpha(folder.path + "none.png", error));
    EXPECT_EQ(PixelsOf(map.Mask), (Bytes{0, 100, 255, 50})) << "a failed load changes nothing";
    ASSERT_TRUE(map.LoadFromFileWithAlpha(folder.path + "plain.png", error)) << error;
    EXPECT_EQ(PixelsOf(map), (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_FALSE(map.Mask.HasPixels()) << "the mask of the former picture";
    EXPECT_EQ(map.aspect, 0.5f);
}

TEST_F(MaterialMapSource, LoadsAColourKeyAsMask) {
    const TestFolder folder;
    const uint8_t key[3] = {255, 0, 255};
    WritePNGWithColourKey(folder.path + "key.png", {9, 9, 9, 255, 0, 255, 255, 0, 254}, key);
    QLM_MaterialMapSource map;
    std::string error;
    ASSERT_TRUE(map.LoadFromFileWithAlpha(folder.path + "key.png", error)) << error;
    EXPECT_EQ(PixelsOf(map.Mask), (Bytes{255, 0, 255}));
}

TEST_F(MaterialMapSource, CutsWhatIsTooLarge) {
    const TestFolder folder;
    std::string error;
    const Bytes row(20010 * 4, 77);
    ASSERT_TRUE(SaveMapToFile(folder.path + "wide.png", row.data(), 20010, 1, true, error)) << error;
    QLM_MaterialMapSource map;
    ASSERT_TRUE(map.LoadFromFileWithAlpha(folder.path + "wide.png", error)) << error;
    EXPECT_EQ(map.GetWidth(), 20000u);
    EXPECT_EQ(map.GetHeight(), 1u);
    EXPECT_EQ(map.aspect, 20010.0f);
    EXPECT_TRUE(map.HasMaskSameSize());
    EXPECT_EQ(PixelsOf(map), Bytes(60000, 77));
}

class Snapshots : public MapTest {
  protected:
    void SetUp() override {
        MapTest::SetUp();
        SetPixels(map, 2, 2, 3, Bytes(12, 10));
        SetPixels(map.Mask, 2, 2, 1, Bytes(4, 20));
    }
    QLM_MaterialMapSource map;
    QLM_ImageMapBufferWorkhorse workhorse;
};

TEST_F(Snapshots, KeepTheStateBeforeTheStroke) {
    EXPECT_EQ(workhorse.GetSnapshotPixels(&map, true), nullptr);
    QLM_ImageMap* snapshot = workhorse.GetSnapshotPixels(&map, false);
    ASSERT_NE(snapshot, nullptr);
    map.GetPixels()[0] = 99;
    map.GetPixels()[11] = 99;
    const float whole[2] = {0, 0}, end[2] = {1, 1};
    map.OnPartialMapChanged(whole, end);
    EXPECT_EQ(workhorse.GetSnapshotPixels(&map, true), snapshot) << "a part doesn't make it stale";
    EXPECT_EQ(PixelsOf(*snapshot), Bytes(12, 10));

    QLM_ImageMapBuffer* buffer = workhorse.GetBuffer(&map, false);
    ASSERT_NE(buffer, nullptr);
    EXPECT_TRUE(buffer->RefreshRect(1, 1, 5, 5));
    EXPECT_TRUE(buffer->IsValid());
    EXPECT_EQ(PixelsOf(*snapshot), (Bytes{10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 99}));

    workhorse.InvalidateBuffer(&map);
    EXPECT_EQ(workhorse.GetSnapshotPixels(&map, true), nullptr);
    EXPECT_FALSE(buffer->RefreshRect(0, 0, 2, 2)) << "a rectangle can't make a stale snapshot whole";
    EXPECT_EQ(PixelsOf(*workhorse.GetSnapshotPixels(&map, false)), PixelsOf(map));
}

TEST_F(Snapshots, GoStaleWithTheWholeMap) {
    const auto areFresh = [&](bool color, bool mask) {
        return (workhorse.GetSnapshotPixels(&map, true) != nullptr) == color &&
               (workhorse.GetSnapshotPixels(&map.Mask, true) != nullptr) == mask;
    };
    const auto refresh = [&] {
        workhorse.GetSnapshotPixels(&map, false);
        workhorse.GetSnapshotPixels(&map.Mask, false);
    };
    refresh();
    EXPECT_TRUE(areFresh(true, true));
    map.Mask.ClearToByte(1);
    EXPECT_TRUE(areFresh(true, false));
    refresh();
    map.OnWholeMapChanged();
    EXPECT_TRUE(areFresh(false, false));
    refresh();
    map.ResizeWithLayers(4, 4);
    EXPECT_TRUE(areFresh(false, false));
    refresh();
    EXPECT_EQ(workhorse.GetSnapshotPixels(&map, true)->GetWidth(), 4u);
    workhorse.InvalidateAllBuffers();
    EXPECT_TRUE(areFresh(false, false));
}

TEST_F(Snapshots, AreReleasedWithTheirMaps) {
    auto* other = new QLM_ImageMap;
    other->SetDimensions(1, 1, 3);
    workhorse.GetSnapshotPixels(&map, false);
    QLM_ImageMapBuffer* buffer = workhorse.GetBuffer(other, true);
    workhorse.Synchronize();
    EXPECT_FALSE(workhorse.AreAllBuffersValid());
    workhorse.GetSnapshotPixels(other, false);
    EXPECT_TRUE(workhorse.AreAllBuffersValid());
    delete other;
    EXPECT_FALSE(buffer->IsValid());
    EXPECT_FALSE(buffer->Refresh());
    workhorse.Synchronize();
    EXPECT_FALSE(buffer->IsAlive());
    EXPECT_TRUE(workhorse.AreAllBuffersValid());
}

} // namespace
