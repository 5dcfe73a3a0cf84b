#include "FileInterchange/OBJ/QLM_LineScanner.h"
#include "FileInterchange/OBJ/QLM_ObjLines.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "FileInterchange/OBJ/QLM_ObjWriter.h"

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "ObjTestSupport.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace {

using Ints = std::vector<int>;

TEST_F(Obj, FormsOfCornersAndIndices) {
    ASSERT_TRUE(
        Read(Square + UVs +
             "f 1/1 2/2 3/3 4/4\nf 1/2/9 2/3/9 3/4/9\nf 1//5 2//5 3//5\nf 1 2 3\nf -3/-1 -2/-2 -1/-3\nfo 1/1 2/2 3/3\n"
             "f 1 2\nf 1/1 2/2 0 3/3 4/4\nf\nf x y z\nf 1/1 2/2 3/3 9/1\nl 1 2\n\tf\t1/1\t2/2   3/3  \n"));
    ASSERT_EQ(Mesh().GetPCount(), 7);
    EXPECT_EQ(Corners(0, false), (Ints{0, 1, 2, 3}));
    EXPECT_EQ(Corners(0, true), (Ints{0, 1, 2, 3}));
    EXPECT_EQ(Corners(1, true), (Ints{1, 2, 3}));
    // The file has texture vertices: a corner without one takes the first.
    EXPECT_EQ(Corners(2, true), (Ints{0, 0, 0}));
    EXPECT_EQ(Corners(3, true), (Ints{0, 0, 0}));
    EXPECT_EQ(Corners(4, false), (Ints{1, 2, 3}));
    EXPECT_EQ(Corners(4, true), (Ints{3, 2, 1}));
    EXPECT_EQ(Corners(5, false), (Ints{0, 1, 2}));
    EXPECT_EQ(Corners(6, false), (Ints{0, 1, 2}));

    ASSERT_TRUE(Read(Square + "f 1/1 2/2 3/3\n"));
    EXPECT_EQ(Corners(0, true), (Ints{-1, -1, -1}));
    // Relative indices count what was read so far: a vertex behind the face is not there yet.
    ASSERT_TRUE(Read("v 0 0 0\nv 1 0 0\nv 1 1 0\nf -3 -2 -1\nv 9 9 9\n"));
    EXPECT_EQ(Corners(0, false), (Ints{0, 1, 2}));

    std::string many = Square + "f";
    for (int i = 0; i < 1100; ++i) many += " " + std::to_string(i % 4 + 1);
    ASSERT_TRUE(Read(many + "\n"));
    EXPECT_EQ(Mesh().GetPolygonVertexCount(0), 1000);
}

TEST_F(Obj, GroupsMaterialsAndLineEnds) {
    ASSERT_TRUE(Read("f 1 2 3\r\n" + std::string("v 0 0 0\r\nv 1 0 0\rv 1 1 0\n\r") +
                     "usemtl skin of arm\r\ng left arm\r\nf 1 2 3\r\nusemtl nail\ng  hand \nf 1 2 3\nusemtl skin of "
                     "arm\ng left arm\nf 3 2 1"));
    ASSERT_EQ(Mesh().GetPCount(), 4);
    ASSERT_EQ(Mesh().GetMaterialCount(), 2);
    EXPECT_STREQ(Mesh().GetMaterials()[0]->GetName(), "skin of arm");
    EXPECT_EQ(Mesh().QLM_MeshGroupContainer::GetGroupCount(), 2);
    EXPECT_STREQ(Mesh().GetGroup(1)->GetName(), "hand");
    EXPECT_EQ(Mesh().GetPolygon(0).material, QLM_Polygon::None);
    EXPECT_EQ(Mesh().GetPolygon(1).material, 0);
    EXPECT_EQ(Mesh().GetPolygon(2).material, 1);
    EXPECT_EQ(Mesh().GetPolygon(3).material, 0);
    EXPECT_EQ(Mesh().GetPolygon(3).group, 0);

    // Internal names take over from the first such comment on.
    QLM_ObjReadOptions options;
    options.useInternalNames = true;
    ASSERT_TRUE(Read(Square + "g a\nf 1 2 3\n#  InternalName: torso:1\nf 1 2 3\ng b\nf 1 2 3\n", options));
    ASSERT_EQ(Mesh().QLM_MeshGroupContainer::GetGroupCount(), 2);
    EXPECT_EQ(Mesh().GetPolygon(2).group, 1);

    // Without usemtl the one material bears the file's stem; a stop token ends the text.
    options = {};
    options.stopToken = "}";
    ASSERT_TRUE(Read(Square + "f 1 2 3\n}\nv 7 7 7\nf 1 2 3\n", options));
    EXPECT_EQ(Mesh().GetVCount(), 4);
    EXPECT_EQ(Mesh().GetPCount(), 1);
    EXPECT_STREQ(Mesh().GetMaterials()[0]->GetName(), "a");
    EXPECT_EQ(Mesh().GetPolygon(0).material, 0);

    EXPECT_FALSE(Read("f 1 2 3\n"));
    EXPECT_EQ(error, "This OBJ file has no vertices!");
}

TEST_F(Obj, MaterialStatements) {
    Put("my cow.mtl",
        "newmtl a\nNs 50\nd 0.25\nKd 0.1 0.2 0.3\nKs 1 2\nMAP_KD -s 1 1 1 tex.png\nmap_Bump -bm 0.5 b.png\ndisp d.tif\n"
        "newmtl nobody\nKd 9 9 9\nnewmtl b/1\nd 1.0\nmap_d  my mask.png  \nKa 0.5 0.5 0.5\n");
    ASSERT_TRUE(Read("mtllib sub/dir/my cow.mtl\nusemtl a\n" + Square + "f 1 2 3\nusemtl b/1\nf 1 2 3\n"));
    const QLM_Material &a = *Mesh().GetMaterials()[0], &b = *Mesh().GetMaterials()[1];
    EXPECT_FLOAT_EQ(a.Glossy->Strength, 0.5f);
    EXPECT_FLOAT_EQ(a.Transparency->Strength, 0.75f);
    EXPECT_FLOAT_EQ(a.Color->Color[2], 0.3f);
    EXPECT_FLOAT_EQ(a.Specular->Color[0], 1.0f);
    EXPECT_FLOAT_EQ(a.Specular->Color[1], 1.0f);
    EXPECT_EQ(a.Color->mapFileName, "1 1 1 tex.png");
    EXPECT_EQ(a.Bump->mapFileName, "0.5 b.png");
    EXPECT_EQ(a.Displacement->mapFileName, "d.tif");
    EXPECT_FLOAT_EQ(b.Transparency->Strength, 0.0f);
    EXPECT_EQ(b.Transparency->mapFileName, "my mask.png");
    EXPECT_FLOAT_EQ(b.Ambient->Color[1], 0.5f);

    QLM_ObjReadOptions options;
    options.importMaps = false;
    ASSERT_TRUE(Read("mtllib my cow.mtl\nusemtl a\n" + Square + "f 1 2 3\n", options));
    EXPECT_EQ(Mesh().GetMaterials()[0]->Color->mapFileName, "");
    EXPECT_FLOAT_EQ(Mesh().GetMaterials()[0]->Glossy->Strength, 0.5f);
}

TEST_F(Obj, NumbersAreThoseOfTheStandardReader) {
    // Every spelling that %f takes, against the library's own reader.
    const char* const spellings[] = {
        "1",     "-1.5", "+2.25", ".5",       "5.",          "1e3", "-1.25E-2", "0x1p3", "123456789.123456789",
        "1e-50", "1e50", "0.1",   "16777217", "3.4028235e38"};
    for (const char* text : spellings) {
        float mine = -7, theirs = -7;
        EXPECT_EQ(QLM_Scan::Floats(text, &mine, 1), 1) << text;
        std::sscanf(text, "%f", &theirs);
        EXPECT_EQ(mine, theirs) << text;
    }
    float three[3] = {7, 7, 7};
    EXPECT_EQ(QLM_Scan::Floats("1 \t 2 x", three, 3), 2);
    EXPECT_EQ(three[2], 7);
    std::mt19937 random(3);
    std::uniform_real_distribution<float> value(-1000, 1000);
    for (int i = 0; i < 2000; ++i) {
        char digits[64];
        std::snprintf(digits, sizeof digits, "%.*f", i % 10, value(random));
        float mine = 0;
        ASSERT_EQ(QLM_Scan::Floats(digits, &mine, 1), 1);
        ASSERT_EQ(mine, std::strtof(digits, nullptr)) << digits;
    }
    // Near the middle of two floats the last digits decide.
    for (int i = 0; i < 2000; ++i) {
        const float low = value(random);
        const double middle = (static_cast<double>(low) + std::nextafterf(low, 2000.0f)) / 2;
        char digits[64];
        std::snprintf(digits, sizeof digits, "%.*g", 12 + i % 6, middle);
        float mine = 0;
        ASSERT_EQ(QLM_Scan::Floats(digits, &mine, 1), 1);
        ASSERT_EQ(mine, std::strtof(digits, nullptr)) << digits;
    }
    const std::string text = "99999999999/-5";
    const char* at = text.data();
    int number = 0;
    EXPECT_TRUE(QLM_Scan::Integer(at, at + text.size(), number));
    EXPECT_EQ(number, 2147483647);
    EXPECT_STREQ(at, "/-5");
}

TEST_F(Obj, NumbersAreWrittenAsPrintfDoes) {
    std::mt19937 random(5);
    QLM_LineBuffer line;
    for (int i = 0; i < 50000; ++i) {
        // Any bits at all, then such as models hold, then ties at the ninth decimal.
        float x = i < 20000   ? std::bit_cast<float>(static_cast<uint32_t>(random()))
                  : i < 40000 ? std::ldexp(static_cast<float>(random()) - 2e9f, static_cast<int>(random() % 40) - 50)
                              : static_cast<float>(static_cast<int>(random() % 4096) - 2048) / 512.0f / 1024.0f;
        if (!std::isfinite(x)) x = -0.0f;
        char digits[80];
        std::snprintf(digits, sizeof digits, "v %.8f\n", static_cast<double>(x));
        line.Clear();
        line.Numbers("v", &x, 1);
        ASSERT_EQ(std::string_view(line.GetData(), line.GetSize()), digits);
    }
}

TEST_F(Obj, LinesAreThoseOfTheLineReader) {
    // Random text with every kind of line end and lines around the limit.
    std::mt19937 random(11);
    std::string text;
    for (int i = 0; i < 4000; ++i) {
        text.append(random() % 8 == 0 ? 18 + random() % 5 : random() % 12, static_cast<char>('a' + random() % 26));
        const char* const ends[] = {"\n", "\r", "\r\n", "\n\r", "\n\n"};
        text += ends[random() % 5];
    }
    const std::string path = Put("lines.txt", text + "last");
    std::vector<std::string> mine, theirs;
    FILE* file = std::fopen(path.c_str(), "rb");
    QLM_TextBlocks blocks(file, 19, 61);
    for (std::string_view block = blocks.Next(), line; !block.empty(); block = blocks.Next())
        for (QLM_LineScanner scanner(block, 19); scanner.Next(line);)
            if (!line.empty()) mine.emplace_back(line);
    std::rewind(file);
    std::string read;
    while (QLM_ReadLine(read, 20, file))
        if (!read.empty()) theirs.push_back(read);
    std::fclose(file);
    EXPECT_EQ(mine, theirs);
}

TEST_F(Obj, WritesWhatItReads) {
    Put("a.mtl", "newmtl one\nKd 0.5 0.25 0.125\nd 0.5\nnewmtl two\n");
    ASSERT_TRUE(Read("mtllib a.mtl\nv 0.123456789 -0.000000012 1000.5\nv 1 0 0\nv 1 1 0\n" + UVs +
                     "usemtl one\ng arm\nf 1/1 2/2 3/3\nusemtl two\nf 3/3 2/2 1/4\ng leg\nf 1/1 2/2 3/3\n"));
    std::string failed;
    const std::string out = folder + "out.obj";
    ASSERT_TRUE(QLM_WriteObjFile(&Mesh(), out, {}, failed)) << failed;
    std::stringstream written;
    written << std::ifstream(out).rdbuf();
    // The triangles lie nearly along x: their normals are worked out elsewhere, so only the other lines are compared.
    std::string line, text;
    while (std::getline(written, line))
        if (line.rfind("vn ", 0) != 0) text += line + "\n";
    EXPECT_EQ(text,
              "# This OBJ file was exported from Quillmere\nmtllib out.mtl\n# Vertex Count 3\n"
              "v 0.12345679 -0.00000001 1000.50000000\nv 1.00000000 0.00000000 0.00000000\nv 1.00000000 1.00000000 "
              "0.00000000\n"
              "vt 0.00000000 0.00000000\nvt 1.00000000 0.00000000\nvt 1.00000000 1.00000000\nvt 0.00000000 1.00000000\n"
              "usemtl one\ng arm\nf 1/1/1 2/2/2 3/3/3\nusemtl two\nf 3/3/3 2/2/2 1/4/1\ng leg\nf 1/1/1 2/2/2 3/3/3\n");
    std::stringstream mtl;
    mtl << std::ifstream(folder + "out.mtl").rdbuf();
    EXPECT_EQ(mtl.str(), "newmtl one\nKa 1.000000 1.000000 1.000000\nKd 0.500000 0.250000 0.125000\nKs 1.000000 "
                         "1.000000 1.000000\nd 0.5000\n"
                         "newmtl two\nKa 1.000000 1.000000 1.000000\nKd 1.000000 1.000000 1.000000\nKs 1.000000 "
                         "1.000000 1.000000\nd 1.0000\n");
    // A folder in the way: nothing is lost and the path is named.
    fs::create_directory(folder + "taken.obj");
    EXPECT_FALSE(QLM_WriteObjFile(&Mesh(), folder + "taken.obj", {}, failed));
    EXPECT_EQ(failed, folder + "taken.obj");
    EXPECT_FALSE(fs::exists(folder + "taken.mtl"));
}

} // namespace
