#include "Images/QLM_GL_Textures.h"

#include "ImageTestFiles.h"

#include <gtest/gtest.h>

namespace {

std::string Record(const std::string& name, const std::string& bytes, uint32_t announced) {
    std::string record = name;
    record.resize(256, '\0');
    for (int shift = 0; shift < 32; shift += 8) record += char(announced >> shift & 255);
    return record + bytes;
}
std::string Record(const std::string& name, const std::string& bytes) {
    return Record(name, bytes, uint32_t(bytes.size()));
}

class GraphicsFile : public testing::Test {
  protected:
    void SetUp() override { QLM_GL_InitTextures(); }
    void TearDown() override { QLM_GL_FreeTextures(); }
    bool Load(const std::string& bytes) {
        WriteBytes(scratch.File("Graphics.dat"), bytes);
        return QLM_LoadGraphicsFile(scratch.File("Graphics.dat"), error);
    }
    const ScratchFolder scratch;
    std::string error;
    const std::string color = ReadBytes(SeedPath("rgb8.png")), withAlpha = ReadBytes(SeedPath("rgba8.png"));
};

TEST_F(GraphicsFile, FillsTheTableAsRGBA) {
    ASSERT_TRUE(
        Load(Record("Lock.png", color) + Record("broken.png", "no picture") + Record("BrushTileTool.png", withAlpha)))
        << error;
    EXPECT_EQ(QLM_GL_FindTexture("broken"), nullptr);
    EXPECT_EQ(QLM_GL_FindTexture("Lock.png"), nullptr);
    const QLM_GL_Texture* lock = QLM_GL_FindTexture("Lock");
    const QLM_GL_Texture* tile = QLM_GL_FindTexture("BrushTileTool");
    ASSERT_TRUE(lock && tile);
    EXPECT_TRUE(lock->HasAlpha && lock->Width == 7 && lock->Height == 5);
    ASSERT_EQ(lock->Pixels.size(), 7u * 5 * 4);
    // The second pixel of the bottom row: (40, 240, 100), and alpha 36 + 4.
    EXPECT_EQ(std::vector<uint8_t>(lock->Pixels.begin() + 4, lock->Pixels.begin() + 8),
              (std::vector<uint8_t>{40, 240, 100, 255}));
    EXPECT_EQ(std::vector<uint8_t>(tile->Pixels.begin() + 4, tile->Pixels.begin() + 8),
              (std::vector<uint8_t>{40, 240, 100, 40}));
}

TEST_F(GraphicsFile, StopsAtWhatIsNoRecord) {
    // A name without an end hides what follows it.
    EXPECT_FALSE(Load(Record(std::string(256, 'x'), color) + Record("BrushTileTool.png", color)));
    EXPECT_NE(error.find("obsolete"), std::string::npos) << error;
    // A count beyond the file takes no memory and ends the reading.
    EXPECT_FALSE(Load(Record("Lock.png", color) + Record("BrushTileTool.png", color, 0xFFFFFFF0u)));
    EXPECT_NE(QLM_GL_FindTexture("Lock"), nullptr);
    EXPECT_FALSE(Load(""));
    const std::string missing = scratch.File("missing.dat");
    EXPECT_FALSE(QLM_LoadGraphicsFile(missing, error));
    EXPECT_EQ(error, "Cannot open the file " + missing);
}

TEST(GLTexture, KeepsItsPixelsAndRegistersItself) {
    QLM_GL_InitTextures();
    const uint8_t pixels[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    auto* texture = new QLM_GL_Texture(pixels, "two", 2, 1, true);
    EXPECT_EQ(QLM_GL_FindTexture("two"), texture);
    texture->Set(); // no context: nothing is made
    EXPECT_EQ(texture->TextureName, 0u);
    texture->ConvertToRGB();
    texture->ConvertToRGB();
    EXPECT_EQ(texture->Pixels, (std::vector<uint8_t>{1, 2, 3, 5, 6, 7}));
    EXPECT_TRUE(texture->IsRGB && !texture->HasAlpha);
    delete texture;
    EXPECT_EQ(QLM_GL_FindTexture("two"), nullptr);
    QLM_GL_FreeTextures();
    const QLM_GL_Texture unregistered(pixels, "late", 2, 1, true);
    EXPECT_EQ(QLM_GL_FindTexture("late"), nullptr);
}

TEST(GLTexture, UploadsAreBuiltWithoutAContext) {
    const uint8_t pixels[18] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18};
    QLM_GL_Texture texture(pixels, "", 3, 2, false);
    uint32_t width, height;
    EXPECT_EQ(texture.BuildUploadBlock(width, height), texture.Pixels);
    EXPECT_TRUE(width == 3 && height == 2);
    texture.PadToPowerOfTwo = true;
    EXPECT_EQ(texture.BuildUploadBlock(width, height),
              (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0, 10, 11, 12, 13, 14, 15, 16, 17, 18, 0, 0, 0}));
    EXPECT_TRUE(width == 4 && height == 2);
    EXPECT_EQ(QLM_GL_ExpandGrey(pixels, 2), (std::vector<uint8_t>{1, 1, 1, 2, 2, 2}));

    // Without a context each upload returns at once and makes no name; a queued name waits for one.
    uint32_t name = 0;
    QLM_GL_UploadPreview(name, pixels, 3, 2);
    EXPECT_EQ(name, 0u);
    QLM_GL_SetActualTexture(pixels, 3, 2, 9728, true, true);
    QLM_GL_QueueTextureDeletion(77);
    QLM_GL_DeleteQueuedTextures();
}

TEST(DisplayList, IsNothingWithoutAContext) {
    QLM_DisplayList list;
    EXPECT_FALSE(QLM_GL_IsAvailable());
    list.Begin();
    list.End();
    EXPECT_FALSE(list.IsValid() || list.Call());
    QLM_InvalidateDisplayLists();
    EXPECT_FALSE(list.Call());
}

} // namespace
