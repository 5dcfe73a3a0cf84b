// The front door: kinds of files, options, modes, and what an import leaves behind.

#include "Core/OS/QLM_Files.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_ObjectManager.h"
#include "ObjTestSupport.h"

namespace {

class Import : public Obj {
  protected:
    QLM_IOManager& io = *QLM_GetManagers().GetIOManager();
    QLM_ObjectManager& objects = *QLM_GetManagers().GetObjectManager();
};

TEST_F(Import, KindsOfFiles) {
    std::string order;
    for (const ImportExportInfo& info : QLM_GetExportTypes())
        order += std::to_string(static_cast<int>(info.type)) + " ";
    EXPECT_EQ(order, "0 1 2 11 12 3 4 5 13 6 14 9 10 ");
    order.clear();
    for (const ImportExportInfo& info : QLM_GetImportTypes()) order += std::string(info.extension) + " ";
    EXPECT_EQ(order, "OBJ qlmTemplate FBX SelSet MorSet DisplayGroupSet CR2 DUF DSF CRZ PP2 PPZ HR2 HRZ ");
    const std::pair<const char*, int> extensions[] = {
        {"obj", 1}, {"OBJZ", 1}, {"qlmtemplate", 2}, {"MorSet", 4}, {"crz", 6},  {"ppz", 7},      {"hrz", 8},
        {"duf", 9}, {"dsf", 10}, {"fbx", 11},        {"png", -1},   {"pz2", -1}, {"multiple", -1}};
    for (const auto& [extension, type] : extensions)
        EXPECT_EQ(static_cast<int>(QLM_FileTypeOfExtension(extension)), type) << extension;
    EXPECT_EQ(QLM_ImporterCodeOfPath("/a/b.obz"), QLM_ImporterCode::OBJ);
    EXPECT_EQ(QLM_ImporterCodeOfPath("/a/b.Cr2"), QLM_ImporterCode::CR2);
    EXPECT_EQ(QLM_ImporterCodeOfPath("/a/b.morset"), QLM_ImporterCode::None);
}

TEST_F(Import, ImportOptionsComeInTheirOrder) {
    const std::string path =
        Put("b.obj", "v 1 2 3\nv 3 2 3\nv 3 6 3\nv 1 6 3\nvt 0.25 0.125\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3 4/4\n");
    io.FlipUVsHorizontallyOnImport = io.FlipNormalsOnImport = io.CenterOnImport = io.ScaleOnImport = true;
    io.ScaleFactor = 2.0f;
    const bool imported = io.ImportDroppedFile(path);
    io.FlipUVsHorizontallyOnImport = io.FlipNormalsOnImport = io.CenterOnImport = io.ScaleOnImport = false;
    io.ScaleFactor = 1.0f;
    ASSERT_TRUE(imported);
    QLM_Mesh& mesh = *objects.GetCurrentObject()->GetMesh();
    // Centre (2, 4, 3) goes to the origin, then everything doubles.
    EXPECT_FLOAT_EQ(mesh.Vertices[0][0], -2);
    EXPECT_FLOAT_EQ(mesh.Vertices[0][1], -4);
    EXPECT_FLOAT_EQ(mesh.Vertices[0][2], 0);
    EXPECT_FLOAT_EQ(mesh.TextureVertices[0][0], 0.75f);
    EXPECT_FLOAT_EQ(mesh.TextureVertices[0][1], 0.125f);
    EXPECT_EQ(mesh.GetPolygonRawVertex(0, 1), 3);
    EXPECT_EQ(mesh.GetPolygonRawVertex(0, 3), 1);
    EXPECT_FLOAT_EQ(mesh.BoundsMax[1], 4);
    EXPECT_LT(mesh.PolygonNormals[0][2], -0.99f);
}

TEST_F(Import, ByTheUserAndAsAReload) {
    Put("tex.png", "no picture");
    Put("a.mtl", "newmtl m\nmap_Kd tex.png\nd 0.5\n");
    const std::string path = Put("cow.obj", "mtllib a.mtl\nusemtl m\n" + Square + "f 1 2 3\n");

    // A reload fills the object that it was given, leaves maps alone and restores the switches.
    auto* given = new QLM_Object;
    given->SetNameText("Named by its record");
    ASSERT_TRUE(io.ImportGeometryFile(given, path, QLM_ImporterCode::OBJ, 1));
    EXPECT_STREQ(given->GetName(), "Named by its record");
    EXPECT_EQ(given->FileName, path);
    EXPECT_EQ(objects.GetCurrentObject(), given);
    EXPECT_EQ(given->GetMesh()->GetMaterials()[0]->Color->mapFileName, "");
    EXPECT_FLOAT_EQ(given->GetMesh()->GetMaterials()[0]->Transparency->Strength, 0.5f);
    EXPECT_TRUE(io.ImportMaps && io.ImportMorphs);
    EXPECT_FALSE(WasTold("Importing the file " + path));

    // The user's import marks what was there, makes an object named after the file and looks for its maps.
    ASSERT_TRUE(io.ImportGeometryFile(nullptr, path, QLM_ImporterCode::OBJ, 0));
    EXPECT_TRUE(WasTold("Importing the file " + path));
    EXPECT_EQ(objects.GetObjectCount(), 2);
    EXPECT_TRUE(given->GetBool("import/temp/previouslyLoaded"));
    QLM_Object* cow = objects.GetCurrentObject();
    EXPECT_STREQ(cow->GetName(), "cow");
    EXPECT_FALSE(cow->GetBool("import/temp/previouslyLoaded"));
    EXPECT_EQ(cow->GetMesh()->GetMaterials()[0]->Color->mapFileName, "tex.png")
        << "what can't be loaded keeps its name";
    EXPECT_EQ(QLM_GetEngine()->importPath, folder);

    // Its folder is searched from now on.
    ASSERT_TRUE(io.ImportGeometryFile(nullptr, "cow.obj", QLM_ImporterCode::OBJ, 0));
    EXPECT_EQ(objects.GetObjectCount(), 3);

    // A path from the current folder is kept from the root on, and what lies beside the file is found.
    Put("near.obj", "\tmtllib far/away/a.mtl\nusemtl m\n" + Square + "f 1 2 3\n");
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    const bool imported = io.ImportDroppedFile("near.obj");
    fs::current_path(before);
    ASSERT_TRUE(imported);
    EXPECT_EQ(objects.GetCurrentObject()->FileName, folder + "near.obj");
    EXPECT_FLOAT_EQ(objects.GetCurrentObject()->GetMesh()->GetMaterials()[0]->Transparency->Strength, 0.5f);
}

TEST_F(Import, FailuresLeaveNothing) {
    auto* given = new QLM_Object;
    ASSERT_TRUE(io.ImportGeometryFile(given, Put("good.obj", Square + "f 1 2 3\n"), QLM_ImporterCode::OBJ, 0));
    QLM_OS::Get().recorded.clear();
    EXPECT_FALSE(io.ImportGeometryFile(nullptr, folder + "none.obj", QLM_ImporterCode::OBJ, 1));
    EXPECT_TRUE(QLM_OS::Get().recorded.empty()) << "a reference that leads nowhere says nothing";
    const std::string empty = Put("empty.obj", "# nothing\n");
    EXPECT_FALSE(io.ImportGeometryFile(given, empty, QLM_ImporterCode::OBJ, 1));
    EXPECT_TRUE(WasTold("Error importing the file " + empty + ". This OBJ file has no vertices!"));
    EXPECT_EQ(given->GetMesh()->GetVCount(), 4) << "the former mesh stays";
    EXPECT_TRUE(io.ImportMaps);
    EXPECT_FALSE(io.ImportGeometryFile(nullptr, empty, QLM_ImporterCode::OBJ, 0));
    EXPECT_FALSE(io.ImportDroppedFile(Put("figure.cr2", "{}")));
    EXPECT_FALSE(io.ImportDroppedFile(folder));
    EXPECT_FALSE(io.ImportDroppedFile(folder + "none.png"));
    EXPECT_TRUE(WasTold("Error importing the file " + folder + "none.png. There is no such file."));
    EXPECT_EQ(objects.GetObjectCount(), 1);
}

TEST_F(Import, BadTextureIndicesAreToldOnceInAProcess) {
    const auto boxes = [] {
        const auto& all = QLM_OS::Get().recorded;
        return std::count_if(all.begin(), all.end(), [](const auto& message) {
            return message.kind == QLM_RecordedMessage::Kind::Box &&
                   message.text.rfind("OBJ file contains polygons with bad UV", 0) == 0;
        });
    };
    const std::string path = Put("bad.obj", Square + UVs + "f 1/99 2/99 3/99\n");
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(io.ImportDroppedFile(path));
    EXPECT_LE(boxes(), 1) << "another test of this process may have had the one";
    EXPECT_EQ(objects.GetCurrentObject()->GetMesh()->GetPolygonTextureVertex(0, 2), 0);
    QLM_OS::Get().recorded.clear();
    ASSERT_TRUE(io.ImportDroppedFile(path));
    EXPECT_EQ(boxes(), 0);
}

TEST_F(Import, StopTokenLeavesTheStreamBehindItsLine) {
    std::string text = "{\n" + Square + "f 1 2 3\n";
    for (int i = 0; i < 3000; ++i) text += "# filler " + std::to_string(i) + "\n";
    text += "  } \nnext line\n" + Square;
    FILE* file = std::fopen(Put("larger.cr2", text).c_str(), "rb");
    std::fseek(file, 2, SEEK_SET);
    object.SetMesh(new QLM_Mesh(&object));
    QLM_ObjReadOptions options;
    options.stopToken = "}";
    options.blockBytes = 10000;
    options.singleDefaultGroup = true;
    EXPECT_TRUE(QLM_LoadObjDataFromStream(file, "larger.cr2", &Mesh(), options, error)) << error;
    EXPECT_EQ(Mesh().GetVCount(), 4);
    EXPECT_STREQ(Mesh().GetGroup(0)->GetName(), "default");
    char line[64] = {};
    EXPECT_TRUE(std::fgets(line, sizeof line, file));
    EXPECT_STREQ(line, "next line\n");
    std::fclose(file);
}

TEST_F(Import, ExportCommandAsksForEachMarkedObject) {
    QLM_OS::Get().recorded.clear();
    EXPECT_FALSE(io.ExportObjects());
    EXPECT_TRUE(WasTold("There are no objects in the project to export."));
    for (const char* name : {"a", "b", "c"}) {
        ASSERT_TRUE(io.ImportDroppedFile(Put(std::string(name) + ".obj", Square + "g one\nf 1 2 3\n")));
        objects.GetCurrentObject()->SetMarked(*name != 'b');
    }
    QLM_OS::Get().queuedAnswers = {folder + "first.obj", "no"};
    EXPECT_TRUE(io.ExportObjects());
    EXPECT_TRUE(fs::exists(folder + "first.obj"));
    EXPECT_TRUE(QLM_OS::Get().queuedAnswers.empty()) << "two marked, two questions";
    std::string reason;
    ASSERT_TRUE(io.SetOption("ExportGroupsAsSeparateFiles", "on", reason));
    QLM_OS::Get().queuedAnswers = {folder + "parts.obj", "no"};
    EXPECT_TRUE(io.ExportObjects());
    ASSERT_TRUE(io.SetOption("ExportGroupsAsSeparateFiles", "off", reason));
    EXPECT_TRUE(fs::exists(folder + "parts_one.OBJ"));
    EXPECT_TRUE(WasTold("Exporting a separate object for each group"));
    EXPECT_FALSE(io.SetOption("ScaleFactor", "0", reason));
    EXPECT_FALSE(io.SetOption("NoSuchOption", "on", reason));
}

/// Every seed, whole and cut short: loads or fails with a reason.
TEST_F(Import, SeedsOfTheFuzzersLoadOrFailCleanly) {
    for (const char* kind : {"obj", "mtl", "objz"})
        for (const auto& entry : fs::directory_iterator(QLM_SOURCE_DIR "/tests/fuzz/corpus/" + std::string(kind))) {
            const std::string whole = Text(entry.path());
            for (size_t cut = whole.size();; cut /= 2) {
                const std::string text = whole.substr(0, cut);
                if (std::string(kind) == "mtl") {
                    Put("m.mtl", text);
                    EXPECT_TRUE(Read("mtllib m.mtl\nusemtl a\n" + Square + "f 1 2 3\n"));
                } else if (std::string(kind) == "objz") {
                    object.SetMesh(new QLM_Mesh(&object));
                    error.clear();
                    const bool loaded = QLM_ReadObjFile(Put("a.objz", text), &Mesh(), {}, error);
                    EXPECT_NE(loaded, !error.empty());
                } else {
                    Read(text);
                }
                if (cut == 0) break;
            }
        }
}

} // namespace
