#include "Images/QLM_ImageLoader.h"

#include "Core/OS/QLM_Memory.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "ImageTestFiles.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>

namespace {

using Pixel = std::array<int, 4>;
using Picture = std::function<Pixel(int x, int y)>; ///< from the top; alpha 255 where there is none

// The pixels that make_pictures.py writes.
Pixel Color(int x, int y) { return {40 * x, 60 * y, 20 * (x + y), 255}; }
Pixel ColorWithAlpha(int x, int y) { return {40 * x, 60 * y, 20 * (x + y), 36 * x + y}; }
Pixel Grey(int x, int) { return {40 * x, 40 * x, 40 * x, 255}; }
Pixel GreyWithAlpha(int x, int y) { return {40 * x, 40 * x, 40 * x, 36 * x + y}; }
int Level(int x, int y, int bits) { return (x + 2 * y) % (1 << bits); }
Picture GreyLevels(int bits) {
    return [bits](int x, int y) {
        const int grey = Level(x, y, bits) * 255 / ((1 << bits) - 1);
        return Pixel{grey, grey, grey, 255};
    };
}
Picture PaletteLevels(int bits) {
    return [bits](int x, int y) {
        const int i = Level(x, y, bits);
        return Pixel{16 * i, 255 - 10 * i, 7 * i, 255};
    };
}

struct Expected {
    const char* name;
    Picture picture;
    bool alpha;
    const char* notice; ///< part of it; null for none
};

Pixel PixelOf(const QLM_LoadedImage& image, int x, int y) {
    const size_t at = size_t(int(image.height) - 1 - y) * image.width + size_t(x);
    const uint8_t* color = &image.color[at * 3];
    return {color[0], color[1], color[2], image.alpha.empty() ? 255 : image.alpha[at]};
}

void ExpectPicture(const Expected& expected) {
    SCOPED_TRACE(expected.name);
    QLM_LoadedImage image;
    QLM_ImageInfo info;
    std::string error;
    ASSERT_TRUE(QLM_ReadImageInfo(SeedPath(expected.name), info, error)) << error;
    ASSERT_TRUE(QLM_LoadImage(SeedPath(expected.name), image, error)) << error;
    ASSERT_EQ(image.width, 7u);
    ASSERT_EQ(image.height, 5u);
    EXPECT_EQ(info.width, 7u);
    EXPECT_EQ(info.height, 5u);
    EXPECT_EQ(info.hasAlpha, expected.alpha);
    EXPECT_EQ(!image.alpha.empty(), expected.alpha);
    EXPECT_EQ(image.notice.empty(), !expected.notice) << image.notice;
    if (expected.notice) { EXPECT_NE(image.notice.find(expected.notice), std::string::npos) << image.notice; }
    for (int y = 0; y < 5; y++)
        for (int x = 0; x < 7; x++) ASSERT_EQ(PixelOf(image, x, y), expected.picture(x, y)) << x << ", " << y;
}

constexpr const char *wide = "16 bits", *firstOnly = "only the first of its pictures";

TEST(ImageLoader, ReadsEveryKindOfPNG) {
    const Picture transparentEntries = [](int x, int y) {
        Pixel pixel = PaletteLevels(4)(x, y);
        const int i = Level(x, y, 4);
        pixel[3] = i < 3 ? 100 * i : 255;
        return pixel;
    };
    const Picture keyed = [](int x, int y) {
        Pixel pixel = Color(x, y);
        if (x == 3 && y == 2) pixel[3] = 0;
        return pixel;
    };
    const Expected all[] = {
        {"grey1.png", GreyLevels(1), false, nullptr},
        {"grey2.png", GreyLevels(2), false, nullptr},
        {"grey4.png", GreyLevels(4), false, nullptr},
        {"grey8.png", Grey, false, nullptr},
        {"grey16.png", Grey, false, wide},
        {"greyalpha8.png", GreyWithAlpha, true, nullptr},
        {"greyalpha16.png", GreyWithAlpha, true, wide},
        {"palette1.png", PaletteLevels(1), false, nullptr},
        {"palette2.png", PaletteLevels(2), false, nullptr},
        {"palette4.png", PaletteLevels(4), false, nullptr},
        {"palette8.png", PaletteLevels(4), false, nullptr},
        {"palettealpha4.png", transparentEntries, true, nullptr},
        {"rgb8.png", Color, false, nullptr},
        {"rgb16.png", Color, false, wide},
        {"rgbkey8.png", keyed, true, nullptr},
        {"rgba8.png", ColorWithAlpha, true, nullptr},
        {"rgba16.png", ColorWithAlpha, true, wide},
        {"interlaced8.png", ColorWithAlpha, true, nullptr},
        {"interlaced1.png", GreyLevels(1), false, nullptr},
        {"interlaced4.png", PaletteLevels(4), false, nullptr},
        {"interlaced16.png", Color, false, wide},
        {"several.png", Color, false, firstOnly},
    };
    for (const Expected& expected : all) ExpectPicture(expected);
}

TEST(ImageLoader, ReadsTheOtherLosslessFormats) {
    const Picture fromInks = [](int x, int y) {
        const Pixel ink = Color(x, y);
        const int light = 255 - 10 * x;
        return Pixel{(255 - ink[0]) * light / 255, (255 - ink[1]) * light / 255, (255 - ink[2]) * light / 255, 255};
    };
    const Picture inverted = [](int x, int y) {
        const int grey = 255 - 255 * Level(x, y, 1);
        return Pixel{grey, grey, grey, 255};
    };
    // Stored premultiplied with an alpha of 51, a fifth of 255.
    const Picture associated = [](int x, int y) {
        Pixel pixel = Color(x, y);
        pixel[3] = 51;
        return pixel;
    };
    const Picture fiveBits = [](int x, int y) {
        Pixel pixel = Color(x, y);
        for (size_t c = 0; c < 3; c++) pixel[c] = pixel[c] / 8 * 255 / 31;
        pixel[3] = x % 2 ? 255 : 0;
        return pixel;
    };
    // Each packet of two has the colour of its first pixel.
    const Picture pairs = [](int x, int y) { return Color(x / 2 * 2, y); };
    const Expected all[] = {
        {"rgb8.tif", Color, false, nullptr},
        {"rgb8-planes.tif", Color, false, nullptr},
        {"rgb16-lzw.tif", Color, false, wide},
        {"associated.tif", associated, true, nullptr},
        {"rgb16.tif", Color, false, wide},
        {"rgba8-lzw.tif", ColorWithAlpha, true, nullptr},
        {"rgba8-tiles.tif", ColorWithAlpha, true, nullptr},
        {"grey16-tiles.tif", Grey, false, wide},
        {"white1.tif", inverted, false, nullptr},
        {"palette4.tif", PaletteLevels(4), false, nullptr},
        {"cmyk8.tif", fromInks, false, "CMYK"},
        {"channels.tif", ColorWithAlpha, true, "further channels"},
        {"several.tif", Color, false, firstOnly},
        {"several-sizes.tif", Color, false, nullptr},
        {"rgb.bmp", Color, false, nullptr},
        {"palette4.bmp", PaletteLevels(4), false, nullptr},
        {"rgba.bmp", ColorWithAlpha, true, nullptr},
        {"masks.bmp", ColorWithAlpha, true, nullptr},
        {"runs4.bmp", PaletteLevels(4), false, nullptr},
        {"interlaced.gif", PaletteLevels(4), false, nullptr},
        {"several.gif", PaletteLevels(4), false, firstOnly},
        {"rgba.tga", ColorWithAlpha, true, nullptr},
        {"mirrored16.tga", fiveBits, true, nullptr},
        {"grey.tga", Grey, false, nullptr},
        {"rgb-runs.tga", pairs, false, nullptr},
        {"runs.tga", PaletteLevels(4), false, nullptr},
        {"rgb.ppm", Color, false, nullptr},
    };
    for (const Expected& expected : all) ExpectPicture(expected);
}

TEST(ImageLoader, MakesAlphaFromAColorKey) {
    QLM_LoadedImage image;
    std::string error;
    ASSERT_TRUE(QLM_LoadImage(SeedPath("key.gif"), image, error)) << error;
    EXPECT_TRUE(image.hasMaskColor);
    ASSERT_EQ(image.alpha.size(), 35u);
    for (int y = 0; y < 5; y++) {
        for (int x = 0; x < 7; x++) {
            Pixel pixel = PixelOf(image, x, y);
            const bool keyed = Level(x, y, 2) == 2;
            ASSERT_EQ(pixel[3], keyed ? 0 : 255) << x << ", " << y;
            if (!keyed) { ASSERT_EQ(pixel, PaletteLevels(2)(x, y)) << x << ", " << y; }
        }
    }
    ASSERT_TRUE(QLM_LoadImage(SeedPath("rgbkey8.png"), image, error));
    EXPECT_TRUE(image.hasMaskColor);
    ASSERT_TRUE(QLM_LoadImage(SeedPath("palettealpha4.png"), image, error));
    EXPECT_FALSE(image.hasMaskColor);
}

TEST(ImageLoader, ReadsGIFWhoseTableFillsUp) {
    QLM_LoadedImage image;
    std::string error;
    ASSERT_TRUE(QLM_LoadImage(SeedPath("grown.gif"), image, error)) << error;
    ASSERT_TRUE(image.width == 120 && image.height == 100);
    uint32_t noise = 1;
    for (int i = 0; i < 120 * 100; i++) {
        noise = noise * 1664525 + 1013904223;
        const int index = i / 700 % 2 ? 0 : int(noise >> 24);
        ASSERT_EQ(PixelOf(image, i % 120, i / 120), (Pixel{index, 255 - index, index / 2, 255})) << i;
    }
}

TEST(ImageLoader, ReadsJPEG) {
    // Two blocks of 8 x 8, each of one colour.
    const struct {
        const char* name;
        Pixel left, right;
        int tolerance;
        bool inks;
    } all[] = {
        {"grey.jpg", {10, 10, 10, 255}, {200, 200, 200, 255}, 0, false},
        {"rgb.jpg", {10, 200, 90, 255}, {250, 0, 128, 255}, 0, false},
        {"ycc.jpg", {100, 100, 100, 255}, {223, 122, 100, 255}, 1, false},
        {"cmyk.jpg", {200, 100, 50, 255}, {100, 50, 25, 255}, 0, true},
        {"ycck.jpg", {155, 155, 155, 255}, {77, 77, 77, 255}, 0, true}, // undoing the transform gives 255 - 100
    };
    for (const auto& expected : all) {
        SCOPED_TRACE(expected.name);
        QLM_LoadedImage image;
        std::string error;
        ASSERT_TRUE(QLM_LoadImage(SeedPath(expected.name), image, error)) << error;
        ASSERT_EQ(image.width, 16u);
        ASSERT_EQ(image.height, 8u);
        EXPECT_EQ(image.notice.find("CMYK") != std::string::npos, expected.inks);
        for (int y = 0; y < 8; y++)
            for (int x = 0; x < 16; x++)
                for (int c = 0; c < 3; c++)
                    ASSERT_NEAR(PixelOf(image, x, y)[size_t(c)], (x < 8 ? expected.left : expected.right)[size_t(c)],
                                expected.tolerance);
    }
}

TEST(ImageLoader, BlocksAreInterleavedAndFailuresTouchNothing) {
    uint8_t* pixels = nullptr;
    uint32_t width = 1, height = 2;
    bool alpha = false;
    int depth = 9;
    std::string error;
    EXPECT_FALSE(LoadImageFile(SeedPath("huge.png"), pixels, width, height, alpha, depth, error));
    EXPECT_TRUE(!pixels && width == 1 && height == 2 && !alpha && depth == 9);

    ASSERT_TRUE(LoadImageFile(SeedPath("rgba8.png"), pixels, width, height, alpha, depth, error));
    EXPECT_TRUE(alpha);
    EXPECT_EQ(depth, 4);
    EXPECT_EQ((std::array<int, 4>{pixels[4], pixels[5], pixels[6], pixels[7]}), ColorWithAlpha(1, 4)); // bottom row
    QLM_Free(pixels);
    std::string notice = "old";
    ASSERT_TRUE(LoadImageFile(SeedPath("rgb8.png"), pixels, width, height, alpha, depth, error, &notice));
    EXPECT_FALSE(alpha);
    EXPECT_EQ(depth, 3);
    EXPECT_EQ(notice, "");
    QLM_Free(pixels);
    ASSERT_TRUE(LoadImageFile(SeedPath("rgba16.png"), pixels, width, height, alpha, depth, error, &notice));
    EXPECT_NE(notice.find(wide), std::string::npos) << notice;
    QLM_Free(pixels);
}

/// The load fails with one line that names the file and holds `part`; the outputs keep what they had.
void ExpectRefusal(const std::string& path, const std::string& part) {
    SCOPED_TRACE(path);
    QLM_LoadedImage image;
    image.width = 77;
    std::string error;
    EXPECT_FALSE(QLM_LoadImage(path, image, error));
    EXPECT_EQ(image.width, 77u);
    EXPECT_NE(error.find(path), std::string::npos) << error;
    EXPECT_NE(error.find(part), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
}

TEST(ImageLoader, RefusesWhatCannotBeAPicture) {
    const ScratchFolder scratch;
    WriteBytes(scratch.File("empty.png"), "");
    WriteBytes(scratch.File("noise.png"), "\x07\x91\xfe random bytes that no format begins with");
    ExpectRefusal(scratch.File("missing.png"), "Cannot open");
    ExpectRefusal(scratch.File("empty.png"), "empty");
    ExpectRefusal(scratch.File("noise.png"), "known format");
    ExpectRefusal(scratch.File(""), "");
    ExpectRefusal(SeedPath("huge.png"), "100000 x 100000");
    ExpectRefusal(SeedPath("hollow.png"), "30000 x 30000");
    ExpectRefusal(SeedPath("two-lines.tif"), ""); // the library complains in two lines
}

TEST(ImageLoader, RefusesTruncatedFiles) {
    const ScratchFolder scratch;
    for (const auto& entry : std::filesystem::directory_iterator(SeedPath(""))) {
        const std::string name = entry.path().filename(), bytes = ReadBytes(entry.path());
        if (name.starts_with("several")) continue; // whole without what lies behind their first picture
        // In the other formats the last bytes may fill up a row or end the file: the picture is whole without them.
        const bool strict = name.ends_with(".png") || name.ends_with(".jpg");
        const size_t needed = bytes.size() - (strict ? 0 : 4);
        const std::string path = scratch.File(name);
        const size_t step = 9 + bytes.size() / 40;
        for (size_t length = 0; length < bytes.size(); length += length + step + 12 < bytes.size() ? step : 1) {
            WriteBytes(path, bytes.substr(0, length));
            QLM_LoadedImage image;
            std::string error;
            const bool loaded = QLM_LoadImage(path, image, error);
            ASSERT_TRUE(loaded || error.find(path) != std::string::npos) << error;
            ASSERT_FALSE(loaded && length < needed) << name << " cut to " << length;
        }
    }
}

TEST(ImageLoader, SurvivesAnyChangedByte) {
    const ScratchFolder scratch;
    for (const auto& entry : std::filesystem::directory_iterator(SeedPath(""))) {
        const std::string bytes = ReadBytes(entry.path()), path = scratch.File(entry.path().filename());
        for (size_t at = 0; at < bytes.size(); at += 5 + bytes.size() / 60) {
            std::string changed = bytes;
            changed[at] = char(changed[at] ^ 0xFF);
            WriteBytes(path, changed);
            QLM_LoadedImage image;
            std::string error;
            if (QLM_LoadImage(path, image, error)) {
                ASSERT_EQ(image.color.size(), size_t(image.width) * image.height * 3);
            } else {
                ASSERT_FALSE(error.empty());
            }
        }
    }
}

/// A block with gradients, flat parts and noise, so that each row filter and several bands occur.
std::vector<uint8_t> MakeBlock(uint32_t width, uint32_t height, int depth) {
    std::vector<uint8_t> block(size_t(width) * height * size_t(depth));
    uint32_t noise = 1;
    for (size_t i = 0; i < block.size(); i++) {
        const size_t row = i / (size_t(width) * size_t(depth));
        noise = noise * 1664525 + 1013904223;
        block[i] = uint8_t(row % 5 == 0 ? noise >> 24 : row % 5 < 3 ? i / 7 : row);
    }
    return block;
}

TEST(ImageSaver, LosslessFormatsComeBackToTheByte) {
    const ScratchFolder scratch;
    for (const char* name : {"a.png", "a.tif", "a.tiff", "a.tga", "A.PNG", "a.bmp"}) {
        for (const int depth : {3, 4}) {
            if (depth == 4 && std::string(name) == "a.bmp") continue;
            SCOPED_TRACE(std::string(name) + " " + std::to_string(depth));
            const std::vector<uint8_t> block = MakeBlock(700, 901, depth);
            std::string error, notice;
            ASSERT_TRUE(SaveMapToFile(scratch.File(name), block.data(), 700, 901, depth == 4, error, &notice)) << error;
            EXPECT_EQ(notice, "");
            uint8_t* pixels = nullptr;
            uint32_t width, height;
            bool alpha;
            int loadedDepth;
            ASSERT_TRUE(LoadImageFile(scratch.File(name), pixels, width, height, alpha, loadedDepth, error)) << error;
            EXPECT_TRUE(width == 700 && height == 901 && loadedDepth == depth);
            EXPECT_TRUE(std::equal(block.begin(), block.end(), pixels));
            QLM_Free(pixels);
        }
    }
}

TEST(ImageSaver, PNGBytesDoNotDependOnThreads) {
    const ScratchFolder scratch;
    const std::vector<uint8_t> block = MakeBlock(1500, 1400, 3);
    std::string error, first;
    const int before = QLM_OS::GetNumberOfThreads();
    for (const int threads : {1, 2, 7}) {
        QLM_ShutdownCrunchers();
        QLM_OS::SetNumberOfThreads(threads);
        ASSERT_TRUE(SaveMapToFile(scratch.File("a.png"), block.data(), 1500, 1400, false, error)) << error;
        const std::string bytes = ReadBytes(scratch.File("a.png"));
        if (first.empty()) first = bytes;
        EXPECT_EQ(bytes, first) << threads;
    }
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(before);
}

TEST(ImageSaver, RowsGiveTheFileOfTheirBlock) {
    const ScratchFolder scratch;
    const std::vector<uint8_t> block = MakeBlock(301, 500, 4);
    const auto rows = [&](uint32_t row, uint8_t* samples) { memcpy(samples, &block[row * 301 * 4], 301 * 4); };
    for (const char* name : {"a.png", "a.tif", "a.tga", "a.jpg", "a.bmp"}) {
        SCOPED_TRACE(name);
        std::string error, ofBlock, ofRows;
        ASSERT_TRUE(SaveMapToFile(scratch.File(name), block.data(), 301, 500, true, error, &ofBlock)) << error;
        const std::string bytes = ReadBytes(scratch.File(name));
        ASSERT_TRUE(SaveMapRowsToFile(scratch.File(name), rows, 301, 500, true, error, &ofRows)) << error;
        EXPECT_EQ(ReadBytes(scratch.File(name)), bytes);
        EXPECT_EQ(ofRows, ofBlock);
    }
}

TEST(ImageSaver, TellsOfLostAlpha) {
    const ScratchFolder scratch;
    std::vector<uint8_t> block(16 * 16 * 4);
    for (size_t i = 0; i < block.size(); i += 4) block[i] = 200, block[i + 1] = 90, block[i + 2] = 40, block[i + 3] = 7;
    for (const char* name : {"a.jpg", "a.bmp"}) {
        std::string error, notice;
        ASSERT_TRUE(SaveMapToFile(scratch.File(name), block.data(), 16, 16, true, error, &notice)) << error;
        EXPECT_NE(notice.find(name), std::string::npos) << notice;
        QLM_LoadedImage image;
        ASSERT_TRUE(QLM_LoadImage(scratch.File(name), image, error)) << error;
        EXPECT_TRUE(image.alpha.empty());
        const Pixel pixel = PixelOf(image, 8, 8);
        EXPECT_NEAR(pixel[0], 200, 2);
        EXPECT_NEAR(pixel[1], 90, 2);
        EXPECT_NEAR(pixel[2], 40, 2);
    }
}

TEST(ImageSaver, AFailedSaveLeavesTheOldFile) {
    const ScratchFolder scratch;
    const uint8_t pixel[3] = {1, 2, 3};
    std::string error;
    WriteBytes(scratch.File("old.xyz"), "old");
    EXPECT_FALSE(SaveMapToFile(scratch.File("old.xyz"), pixel, 1, 1, false, error));
    EXPECT_EQ(ReadBytes(scratch.File("old.xyz")), "old");
    WriteBytes(scratch.File("old.png"), "old");
    EXPECT_FALSE(SaveMapToFile(scratch.File("old.png"), pixel, 0, 1, false, error));
    EXPECT_EQ(ReadBytes(scratch.File("old.png")), "old");
    const std::vector<uint8_t> wideRow(65536 * 3);
    EXPECT_FALSE(SaveMapToFile(scratch.File("wide.tga"), wideRow.data(), 65536, 1, false, error));
    EXPECT_NE(error.find("65535 pixels a side"), std::string::npos) << error;
    EXPECT_FALSE(SaveMapToFile(scratch.File("no folder/a.png"), pixel, 1, 1, false, error));
    EXPECT_NE(error.find("no folder/a.png"), std::string::npos) << error;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(scratch.File("")), {}), 2);
}

} // namespace
