// The frame of binary data inside a text stream.

#include "Core/TextStream/QLM_TextStream.h"

#include <gtest/gtest.h>
#include <zlib.h>

namespace {

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using Stream = std::unique_ptr<FILE, FileCloser>;

Stream Open(const std::string& text) {
    Stream stream(std::tmpfile());
    std::fwrite(text.data(), 1, text.size(), stream.get());
    std::rewind(stream.get());
    return stream;
}

std::string Rest(FILE* file) {
    std::string text;
    for (int c; (c = std::getc(file)) != EOF;) text.push_back(static_cast<char>(c));
    return text;
}

/// 1.5f, -2.0f, 0.25f, packed with zlib at level 1 by another program.
std::string PackedFloats() {
    std::vector<uint8_t> bytes;
    QLM_Base64Decode("eAFjYDhgz8DAcICBocEOAA7BAn4=", bytes);
    return {bytes.begin(), bytes.end()};
}

std::string Block(const std::string& sizes, const std::string& data) {
    return "{\n" + sizes + "DATA_BEGIN\n" + data + "\nDATA_END\n}\nbehind";
}

TEST(CompressedBlock, WritesTheFrameToTheByte) {
    Stream stream = Open("");
    const std::string data(1000, 'q');
    {
        const TStartTextFileBlock outer("map", "m", stream.get());
        QLM_WriteCompressedBlock(stream.get(), "pixels", data.data(), data.size());
    }
    std::rewind(stream.get());
    const std::string text = Rest(stream.get());
    const size_t begin = text.find("DATA_BEGIN\n") + 11, end = text.rfind("\nDATA_END\n\t}\n}\n");
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(text.substr(0, begin), "map\tm\n{\n\tpixels\t\n\t{\n\t\trawDataSize\t1000\n\t\tcompressedDataSize\t" +
              std::to_string(end - begin) + "\nDATA_BEGIN\n");
    EXPECT_EQ(text.substr(begin, 2), "\x78\x01") << "zlib header of level 1";
    std::string unpacked(2000, 0);
    uLongf size = unpacked.size();
    ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(unpacked.data()), &size,
                         reinterpret_cast<const Bytef*>(text.data() + begin), end - begin), Z_OK);
    EXPECT_EQ(unpacked.substr(0, size), data);
}

TEST(CompressedBlock, ReadsEveryFormAndStopsBehindIt) {
    const std::string packed = PackedFloats();
    const std::string stored = std::to_string(packed.size());
    const float expected[3] = {1.5f, -2.0f, 0.25f};
    const std::string raw(reinterpret_cast<const char*>(expected), sizeof expected);
    for (const std::string& text :
         {Block("rawDataSize\t12\ncompressedDataSize\t" + stored + "\n", packed),
          "x y\n" + Block("\tcompresseddatasize " + stored + "\n\tRAWDATASIZE 12\n", packed),
          Block("rawDataSize\t12\n", raw)}) {
        Stream stream = Open(text);
        std::vector<uint8_t> out;
        ASSERT_TRUE(QLM_ReadCompressedBlock(stream.get(), out, 12)) << text;
        ASSERT_EQ(out.size(), sizeof expected);
        EXPECT_EQ(std::memcmp(out.data(), expected, sizeof expected), 0);
        EXPECT_EQ(Rest(stream.get()), "behind");
    }
}

TEST(CompressedBlock, RefusesWhatCannotBeTrueAndPassesOverIt) {
    const std::string packed = PackedFloats();
    const std::string sized = "compressedDataSize " + std::to_string(packed.size()) + "\n";
    std::string damaged = packed;
    damaged[8] = static_cast<char>(damaged[8] ^ 0x55);
    for (const std::string& text : {
             Block("rawDataSize 16\n" + sized, packed),             // not what the caller expects
             Block(sized, packed),                                  // no size at all
             Block("rawDataSize -12\n" + sized, packed),
             Block("rawDataSize 12\ncompressedDataSize 999999999999\n", packed),
             Block("rawDataSize 12\n" + sized, damaged),
             std::string("{\nrawDataSize 12\n}\nbehind")}) {
        Stream stream = Open(text);
        std::vector<uint8_t> out{1};
        EXPECT_FALSE(QLM_ReadCompressedBlock(stream.get(), out, 12)) << text;
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(Rest(stream.get()), "behind") << text;
    }
    // Too short and too long for what is announced, and an expansion that deflate can't reach.
    for (const char* size : {"11", "13", "9000000000000"}) {
        Stream stream = Open(Block("rawDataSize " + std::string(size) + "\n" + sized, packed));
        std::vector<uint8_t> out;
        EXPECT_FALSE(QLM_ReadCompressedBlock(stream.get(), out)) << size;
    }
}

TEST(CompressedBlock, SurvivesTruncationAnywhere) {
    const std::string packed = PackedFloats();
    const std::string text = Block("rawDataSize 12\ncompressedDataSize " + std::to_string(packed.size()) + "\n", packed);
    const size_t whole = text.size() - 8; // the closing brace without its line end
    for (size_t length = 0; length < text.size(); ++length) {
        Stream stream = Open(text.substr(0, length));
        std::vector<uint8_t> out;
        EXPECT_EQ(QLM_ReadCompressedBlock(stream.get(), out), length >= whole + 1) << length;
    }
}

} // namespace
