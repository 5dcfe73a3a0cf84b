// Paths, the search without regard to case, archives and safe writing.

#include "Core/OS/QLM_Files.h"
#include "Core/OS/String_Functions.h"
#include "tests/Core/Raised.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

class Files : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "quillmere files \u00e9 XXXXXX";
        root = std::string(mkdtemp(pattern.data())) + "/";
    }
    void TearDown() override { std::filesystem::remove_all(root); }

    void Write(const std::string& path, const std::string& text) const {
        FILE* file = std::fopen(path.c_str(), "wb");
        ASSERT_NE(file, nullptr) << path;
        std::fwrite(text.data(), 1, text.size(), file);
        std::fclose(file);
    }
    static std::string ReadOpen(FILE* file) {
        if (!file) return "not opened";
        std::string text;
        for (int c; (c = std::getc(file)) != EOF;) text.push_back(static_cast<char>(c));
        return text;
    }
    static std::string Read(const std::string& path) {
        FILE* file = QLM_fopen(path, "rb");
        const std::string text = ReadOpen(file);
        if (file) QLM_fclose(file);
        return text;
    }
    void WriteBase64(const std::string& path, const std::string& text) const {
        std::vector<uint8_t> bytes;
        ASSERT_TRUE(QLM_Base64Decode(text, bytes));
        Write(path, {bytes.begin(), bytes.end()});
    }

    std::string root;
};

TEST(Paths, PartsOfAName) {
    EXPECT_EQ(QLM_NativePath("C:\\a\\b/c"), "C:/a/b/c");
    EXPECT_EQ(QLM_FileNameOf("a\\b/c.d.obj"), "c.d.obj");
    EXPECT_EQ(QLM_FileNameOf("a/b\\"), "");
    EXPECT_EQ(QLM_FolderOf("a/b\\c.obj"), "a/b\\");
    EXPECT_EQ(QLM_FolderOf("c.obj"), "");
    EXPECT_EQ(QLM_StemOf("x.y/c.d.obj"), "c.d");
    EXPECT_EQ(QLM_StemOf("x.y/name"), "name");
    EXPECT_EQ(QLM_ExtensionOf("x.y/c.d.OBJ"), "OBJ");
    EXPECT_EQ(QLM_ExtensionOf("x.y/name"), "");
    EXPECT_EQ(QLM_FindLastSeparator("name"), std::string::npos);
    EXPECT_EQ(QLM_NormalizeFolder("a\\\\b//c"), "a/b/c/");
    EXPECT_EQ(QLM_NormalizeFolder("/"), "/");
    EXPECT_EQ(QLM_NormalizeFolder(""), "");
}

TEST_F(Files, ReadingFindsNamesInAnyCaseTheExactOneFirst) {
    ASSERT_TRUE(QLM_CreateDirectory(root + "Runtime/Geometries"));
    Write(root + "Runtime/Geometries/Ball.OBJ", "Ball");
    Write(root + "Runtime/Geometries/BALL.obj", "BALL");
    EXPECT_EQ(QLM_ResolveCase(root + "runtime\\geometries\\Ball.OBJ"), root + "Runtime/Geometries/Ball.OBJ");
    EXPECT_EQ(QLM_ResolveCase(root + "RUNTIME/geometries/ball.obj"), root + "Runtime/Geometries/BALL.obj");
    EXPECT_EQ(QLM_ResolveCase(root + "runtime\\none\\x"), root + "runtime/none/x") << "unchanged when nothing matches";
    EXPECT_EQ(Read(root + "runtime\\Geometries\\ball.OBJ"), "BALL");
    EXPECT_TRUE(QLM_FileExists(root + "runtime/geometries/ball.obj"));
    EXPECT_FALSE(QLM_FileExists(root + "runtime"));
    EXPECT_TRUE(QLM_FolderExists(root + "runtime"));
    EXPECT_EQ(QLM_fopen(root + "Runtime", "rb"), nullptr) << "a folder is no file";
    EXPECT_EQ(Raised([&] { QLM_fopen(root + "x", " "); }), "invalid ( blank ) mode in QLM_fopen()");

    const QLM_DirectoryCacheScope outer;
    {
        const QLM_DirectoryCacheScope inner;
        EXPECT_TRUE(QLM_FileExists(root + "runtime/geometries/ball.obj"));
    }
    std::filesystem::rename(root + "Runtime/Geometries/BALL.obj", root + "Runtime/Geometries/Cube.obj");
    EXPECT_EQ(QLM_ResolveCase(root + "runtime/geometries/ball.obj"), root + "Runtime/Geometries/BALL.obj")
        << "the list is kept while a scope lives";
}

TEST_F(Files, WritingTakesExistingFoldersAndTheNameAsGiven) {
    ASSERT_TRUE(QLM_CreateDirectory(root + "Runtime"));
    ASSERT_TRUE(QLM_CreateDirectory(root + "runtime/Textures/new"));
    EXPECT_EQ(QLM_ListFolder(root), std::vector<std::string>{"Runtime"});
    Write(root + "Runtime/Old.txt", "old");
    FILE* file = QLM_fopen(root + "RUNTIME\\old.txt", "W");
    ASSERT_NE(file, nullptr);
    QLM_fclose(file);
    EXPECT_EQ(QLM_ListFolder(root + "Runtime"), (std::vector<std::string>{"Old.txt", "Textures", "old.txt"}));
    EXPECT_FALSE(QLM_DeleteFile(root + "runtime/OLD.txt")) << "never another file than the one named";
    EXPECT_TRUE(QLM_DeleteFile(root + "runtime/old.txt"));
    EXPECT_FALSE(QLM_CreateDirectory(root + "Runtime/Old.txt"));
}

TEST_F(Files, TemporaryNamesAreTenCapitals) {
    const std::string first = QLM_MakeTempFileName(root, "tmp"), second = QLM_MakeTempFileName(root, "tmp");
    EXPECT_NE(first, second);
    EXPECT_TRUE(QLM_FileExists(first));
    const std::string stem = QLM_StemOf(first);
    EXPECT_EQ(stem.size(), 10u);
    EXPECT_EQ(stem.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string::npos);
    EXPECT_EQ(first, root + stem + ".tmp");
    EXPECT_EQ(QLM_MakeTempFileName(root + "missing/", "tmp"), "");
}

TEST_F(Files, APathPassesThroughAnArchive) {
    // Data/Model.obj, DATA/model.OBJ and a member with a name in UTF-8, packed by another program.
    WriteBase64(root + "Pack.zip",
                "UEsDBBQAAAAIAAAAIVAKf5a4CgAAAAgAAAAOAAAARGF0YS9Nb2RlbC5vYmorUzBUMFIw5gIAUEsDBBQAAAAIAAAAIVDskit5BwAAAAgAAAAO"
                "AAAAREFUQS9tb2RlbC5PQkorU7AEQS4AUEsDBBQAAAgIAAAAIVC1Qq2YBwAAAAUAAAAJAAAAdMOpeHQudHh0S05MO7wSAFBLAQIUAxQAAAAI"
                "AAAAIVAKf5a4CgAAAAgAAAAOAAAAAAAAAAAAAACAAQAAAABEYXRhL01vZGVsLm9ialBLAQIUAxQAAAAIAAAAIVDskit5BwAAAAgAAAAOAAAA"
                "AAAAAAAAAACAATYAAABEQVRBL21vZGVsLk9CSlBLAQIUAxQAAAgIAAAAIVC1Qq2YBwAAAAUAAAAJAAAAAAAAAAAAAACAAWkAAAB0w6l4dC50"
                "eHRQSwUGAAAAAAMAAwCvAAAAlwAAAAAA");
    std::string archive, inner;
    EXPECT_TRUE(QLM_SplitArchivePath("a.b/Pack.ZIP\\Data/x.obj", archive, inner));
    EXPECT_EQ(archive + "|" + inner, "a.b/Pack.ZIP|Data/x.obj");
    EXPECT_FALSE(QLM_SplitArchivePath("a/Pack.zip", archive, inner));
    EXPECT_FALSE(QLM_SplitArchivePath("a/Packzip/x", archive, inner));
    EXPECT_FALSE(QLM_SplitArchivePath("a/Pack.qpk/x", archive, inner));
    QLM_RegisterArchiveExtension("QPK");
    EXPECT_TRUE(QLM_SplitArchivePath("a/Pack.qpk/x", archive, inner));

    setenv("TMPDIR", root.c_str(), 1);
    FILE* member = QLM_fopen(root + "pack.zip\\Data\\Model.obj", "rb");
    EXPECT_EQ(ReadOpen(member), "v 1 2 3\n");
    EXPECT_EQ(QLM_ListFolder(root).size(), 2u);
    ASSERT_NE(member, nullptr);
    QLM_fclose(member);
    EXPECT_EQ(Read(root + "Pack.zip/data/model.obj"), "v 9 9 9\n") << "DATA comes first in byte order";
    EXPECT_EQ(Read(root + "Pack.zip/t\u00e9xt.txt"), "caf\u00e9");
    EXPECT_EQ(Read(root + "Pack.zip/none"), "not opened");
    EXPECT_FALSE(ExtractSingleFileFromZipFile(root + "Pack.zip", "Data/Model.obj", root + "missing/x"));

    // Cut anywhere: nothing but a refusal, and no temporary file is left.
    const std::string whole = Read(root + "Pack.zip");
    for (size_t length = 0; length < whole.size(); length += 7) {
        Write(root + "Cut.zip", whole.substr(0, length));
        const std::string text = Read(root + "Cut.zip/Data/Model.obj");
        EXPECT_TRUE(text == "not opened" || text == "v 1 2 3\n") << length;
    }
    EXPECT_EQ(QLM_ListFolder(root), (std::vector<std::string>{"Cut.zip", "Pack.zip"}));
    unsetenv("TMPDIR");
}

TEST_F(Files, UnpacksGzipAndZlib) {
    std::string error;
    WriteBase64(root + "two.gz", "H4sIAAAAAAACA0vLLCouUcjJzEvlAgAQ/O+9CwAAAB+LCAAAAAAAAgMrTk3Oz0tRyMnMS+UCAE0zRq0MAAAA");
    EXPECT_TRUE(QLM_GunzipFile(root + "TWO.gz", root + "out", error)) << error;
    EXPECT_EQ(Read(root + "out"), "first line\nsecond line\n") << "both members";
    WriteBase64(root + "fig.crz", "eJxLy0wvLUrlAgALSAKN");
    EXPECT_TRUE(QLM_GunzipFile(root + "fig.crz", root + "out", error)) << error;
    EXPECT_EQ(Read(root + "out"), "figure\n");

    const std::string whole = Read(root + "fig.crz");
    for (size_t length = 0; length < whole.size(); ++length) {
        Write(root + "cut", whole.substr(0, length));
        EXPECT_FALSE(QLM_GunzipFile(root + "cut", root + "out", error)) << length;
        EXPECT_FALSE(error.empty());
    }
    EXPECT_FALSE(QLM_GunzipFile(root + "none", root + "out", error));
    EXPECT_EQ(Read(root + "out"), "figure\n") << "what was there before stays";
}

TEST_F(Files, AFailedSaveLeavesTheOldFile) {
    const std::string target = root + "Scene.quillmere";
    Write(target, "old");
    {
        QLM_SafeFileWriter abandoned(target);
        std::fputs("new", abandoned.GetStream());
    }
    EXPECT_EQ(Read(target), "old");
    {
        // The disk is full in the middle of the save.
        rlimit old{};
        getrlimit(RLIMIT_FSIZE, &old);
        const auto handler = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit small{4096, old.rlim_max};
        QLM_SafeFileWriter writer(target);
        setrlimit(RLIMIT_FSIZE, &small);
        const std::string much(100000, 'x');
        std::fwrite(much.data(), 1, much.size(), writer.GetStream());
        EXPECT_FALSE(writer.Commit());
        setrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, handler);
    }
    EXPECT_EQ(Read(target), "old");
    EXPECT_EQ(QLM_ListFolder(root), std::vector<std::string>{"Scene.quillmere"}) << "nothing is left beside it";

    std::filesystem::permissions(target, std::filesystem::perms(0640));
    std::filesystem::create_symlink(target, root + "link");
    {
        QLM_SafeFileWriter writer(root + "link");
        std::fputs("new", writer.GetStream());
        EXPECT_EQ(Read(target), "old") << "until the commit";
        EXPECT_TRUE(writer.Commit());
        EXPECT_FALSE(writer.Commit());
    }
    EXPECT_EQ(Read(target), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(root + "link"));
    EXPECT_EQ(std::filesystem::status(target).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(QLM_SafeFileWriter(root + "missing/x").GetStream(), nullptr);
    EXPECT_EQ(QLM_SafeFileWriter("/dev/null").GetStream(), nullptr) << "a device is no file to replace";
}

} // namespace
