// What goes out comes in again.

#include "Core/OS/QLM_Files.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/OBJ/QLM_ObjWriter.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "ObjTestSupport.h"

#include <zlib.h>

#include <cmath>
#include <random>

namespace {

class ObjRoundTrip : public Obj {
  protected:
    /// Each face as material, group and corners, all by name and number.
    static std::vector<std::string> Faces(const QLM_Mesh& mesh) {
        std::vector<std::string> faces;
        for (int p = 0; p < mesh.GetPCount(); ++p) {
            const QLM_Polygon& polygon = mesh.GetPolygon(p);
            const QLM_Group2* group = mesh.GetGroup(polygon.group);
            QLM_Material* material = mesh.GetMaterial(polygon.material);
            std::string face =
                std::string(material ? material->GetName() : "-") + "|" + (group ? group->GetName() : "-");
            for (int i = 0; i < polygon.count; ++i)
                face += " " + std::to_string(polygon.corners[i].vertex) + "/" +
                        std::to_string(polygon.corners[i].textureVertex);
            faces.push_back(face);
        }
        return faces;
    }

    /// Equal to the bit from 0.125 up, within the digits written below.
    static void ExpectSame(const float* a, const float* b, int64_t count) {
        for (int64_t i = 0; i < count; ++i) {
            if (std::fabs(a[i]) >= 0.125f) ASSERT_EQ(a[i], b[i]) << i;
            else ASSERT_NEAR(a[i], b[i], 7.5e-9) << i;
        }
    }

    /// Writes the mesh, reads it into another object and compares the two.
    void ExpectRoundTrip(QLM_Mesh& before, QLM_ObjWriteOptions options = {}) {
        std::string failed;
        ASSERT_TRUE(QLM_WriteObjFile(&before, folder + "trip.obj", options, failed)) << failed;
        QLM_Object other;
        other.SetMesh(new QLM_Mesh(&other));
        QLM_ObjReadOptions readOptions;
        readOptions.useInternalNames = options.internalNames;
        ASSERT_TRUE(QLM_ReadObjFile(folder + "trip.obj", other.GetMesh(), readOptions, error)) << error;
        QLM_Mesh& after = *other.GetMesh();
        ASSERT_EQ(after.GetVCount(), before.GetVCount());
        ASSERT_EQ(after.GetVTCount(), before.GetVTCount());
        ExpectSame(before.ResolvedVertices.GetData(), after.Vertices.GetData(), 3 * before.GetVCount());
        ExpectSame(before.TextureVertices.GetData(), after.TextureVertices.GetData(), 2 * before.GetVTCount());
        EXPECT_EQ(Faces(after), Faces(before));
    }
};

TEST_F(ObjRoundTrip, SpotAndAFigureOfManyGroups) {
    std::error_code missing;
    const std::string spot = QLM_SOURCE_DIR "/../shared/data/spot/spot.obj";
    if (fs::exists(spot, missing)) {
        object.SetMesh(new QLM_Mesh(&object));
        ASSERT_TRUE(QLM_ReadObjFile(spot, &Mesh(), {}, error)) << error;
        ExpectRoundTrip(Mesh());
    }
    // 172 groups of ten quads, every fifth with a material of its own, with coordinates of all sizes.
    std::mt19937 random(17);
    std::string text;
    const auto number = [&] {
        return std::to_string((static_cast<double>(random()) / 4294967296.0 - 0.5) * std::pow(10.0, random() % 5));
    };
    for (int v = 0; v < 2000; ++v) text += "v " + number() + " " + number() + " " + number() + "\n";
    for (int v = 0; v < 2000; ++v) text += "vt 0." + std::to_string(100000 + random() % 900000) + " 0.5\n";
    for (int g = 0; g < 172; ++g) {
        text += "g body part " + std::to_string(g) + "\n";
        if (g % 5 == 0) text += "usemtl skin " + std::to_string(g) + "\n";
        for (int f = 0; f < 10; ++f) {
            text += "f";
            for (int i = 0; i < 4; ++i)
                text += " " + std::to_string(1 + random() % 2000) + "/" + std::to_string(1 + random() % 2000);
            text += "\n";
        }
    }
    ASSERT_TRUE(Read(text)) << error;
    ASSERT_EQ(Mesh().GetGroupCount(), 172);
    ASSERT_EQ(Mesh().GetMaterialCount(), 35);
    ExpectRoundTrip(Mesh());
    QLM_ObjWriteOptions options;
    options.internalNames = true;
    options.exportGroups = false;
    ExpectRoundTrip(Mesh(), options);
}

TEST_F(ObjRoundTrip, OddButLegalFiles) {
    std::string many = Square;
    for (int i = 0; i < 1000; ++i) many += "usemtl m" + std::to_string(i) + "\nf 1 2 3\n";
    const std::string texts[] = {
        Square + UVs + "f -4/-4 -3/-3 -2/-2\r\nf -1/-1/-1 -2/-2/-2 -3/-3/-3\r\n", // relative, CRLF
        Square + "f 1//1 2//2 3//3 4//4\n",                                       // without texture vertices
        "v\t1\t2\t3\nv\t4 5 6\nv 7\t8\t9\nf\t1\t2\t3\n",                          // tabs
        "f 1 2 3\n" + Square + "usemtl no library here\ng  two words \nf 4 3 2 1\nf 1 2 3\n",
        many,
        Square + "v 9 9 9\n", // no polygon, an isolated vertex
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 60));
        ASSERT_TRUE(Read(text)) << error;
        ExpectRoundTrip(Mesh());
    }
    ASSERT_TRUE(Read(many));
    EXPECT_EQ(Mesh().GetMaterialCount(), 1000);
}

TEST_F(ObjRoundTrip, PackedFiles) {
    const auto pack = [&](const std::string& name, const std::string& text) {
        gzFile file = gzopen((folder + name).c_str(), "wb9");
        gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
        gzclose(file);
        return folder + name;
    };
    object.SetMesh(new QLM_Mesh(&object));
    ASSERT_TRUE(QLM_ReadObjFile(pack("a.objz", Square + "f 1 2 3 4\n"), &Mesh(), {}, error)) << error;
    EXPECT_EQ(Corners(0, false), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_STREQ(Mesh().GetMaterials()[0]->GetName(), "a");

    // Far more than a text of that size can hold, damaged, cut off and not packed at all: told, and nothing is left.
    const std::string good = Text(folder + "a.objz");
    const std::string bad[] = {pack("bomb.objz", std::string(80 << 20, ' ')),
                               Put("cut.objz", good.substr(0, good.size() / 2)),
                               Put("hurt.objz", good.substr(0, 12) + "????" + good.substr(16)),
                               Put("plain.objz", Square), Put("empty.objz", "")};
    for (const std::string& path : bad) {
        object.SetMesh(new QLM_Mesh(&object));
        error.clear();
        EXPECT_FALSE(QLM_ReadObjFile(path, &Mesh(), {}, error)) << path;
        EXPECT_FALSE(error.empty()) << path;
        EXPECT_EQ(Mesh().GetVCount(), 0) << path;
    }
}

TEST_F(ObjRoundTrip, AMovedObjectIsWrittenWhereItStands) {
    // The last vertex belongs to no polygon: like a hidden one it is never seen.
    QLM_Object* moved = scene.AddObject("cube", {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0.5, 0.5, 0}, {},
                                        {{{0, -1}, {1, -1}, {2, -1}, {3, -1}}});
    QLM_Mesh& mesh = *moved->GetMesh();
    for (int i = 0; i < 3; ++i) mesh.Transform_Scale[i] = 2.0f;
    mesh.Transform_Pos[0] = 1.0f;
    QLM_GetManagers().GetObjectManager()->OnShapeChanged(moved, true, true, true);
    QLM_IOManager& io = *QLM_GetManagers().GetIOManager();
    ASSERT_TRUE(io.ExportObjectFile(&mesh, folder + "moved.obj", true, true));
    // Scaled about its middle (0.5, 0.5, 0): -0.5..1.5, then 1 to the right.
    const std::string text = Text(folder + "moved.obj");
    EXPECT_NE(text.find("\nv 0.50000000 -0.50000000 0.00000000\nv 2.50000000 -0.50000000 0.00000000\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\nv 1.50000000 0.50000000 0.00000000\nvn "), std::string::npos) << text;
    EXPECT_EQ(text.find("\nf "), std::string::npos) << "vertices only";
    // Groups keep the object's own space.
    ASSERT_TRUE(io.ExportGroupsAsSeparateObjects(moved, folder + "own.obj"));
    const std::string group = Text(folder + "own_" + mesh.GetGroup(0)->GetName() + ".OBJ");
    EXPECT_EQ(group.find("vn "), std::string::npos);
    EXPECT_NE(group.find("v 1.00000000 0.00000000 0.00000000\n"), std::string::npos) << group;
    EXPECT_EQ(mesh.ResolvedVertices[0][0], 0.5f) << "the resolved shape is as it was";
}

TEST_F(ObjRoundTrip, AWeldedObjectIsWrittenAsItCame) {
    ASSERT_TRUE(Read("v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 1.001 0 0\nv 2 0 -1\nv 2 1 -1\nv 1.001 1 0\n"
                     "g left:1\nf 1 2 3 4\ng right:2\nf 5 6 7 8\n"));
    const auto write = [&] {
        std::string failed;
        EXPECT_TRUE(QLM_WriteObjFile(&Mesh(), folder + "w.obj", {}, failed)) << failed;
        EXPECT_TRUE(QLM_WriteObjGroups(&Mesh(), folder + "w.obj", {}));
        return Text(folder + "w.obj") + Text(folder + "w_left.OBJ") + Text(folder + "w_right.OBJ");
    };
    const std::string separate = write();
    EXPECT_NE(separate.find("g left\nf 1//1"), std::string::npos) << "what follows a colon stays out of the file";
    ASSERT_EQ(Mesh().Weld(0.01f, false, false, false), 2);
    EXPECT_EQ(write(), separate);
    EXPECT_TRUE(Mesh().IsWelded());
    EXPECT_EQ(Mesh().GetWeldTarget(4), 1);
}

TEST_F(ObjRoundTrip, NeitherFileIsReplacedWithoutTheOther) {
    ASSERT_TRUE(Read(Square + "f 1 2 3\n"));
    Put("a.obj", "old");
    fs::create_directory(folder + "a.mtl");
    std::string failed;
    EXPECT_FALSE(QLM_WriteObjFile(&Mesh(), folder + "a.obj", {}, failed));
    EXPECT_EQ(failed, folder + "a.mtl");
    EXPECT_EQ(Text(folder + "a.obj"), "old");
    Put("b.mtl", "old");
    EXPECT_FALSE(QLM_WriteObjFile(&Mesh(), folder + "b.mtl", {}, failed)) << "the object would be lost to its library";
    EXPECT_EQ(Text(folder + "b.mtl"), "old");
}

TEST_F(ObjRoundTrip, GroupsAsSeparateFiles) {
    ASSERT_TRUE(Read(Square + "v 5 5 5\n" + UVs +
                     "g left arm\nusemtl skin\nf 3/4 2/3 1/2\ng leg\nf 1/1 3/2 4/3\nusemtl nail\nf 4/3 5/4 1/1\n"));
    QLM_ObjWriteOptions options;
    ASSERT_TRUE(QLM_WriteObjGroups(&Mesh(), folder + "figure.obj", options));
    EXPECT_EQ(
        Text(folder + "figure_left arm.OBJ"),
        "mtllib figure.mtl\n# Vertex Count 3\nv -1.00000000 -1.00000000 0.00000000\nv 1.00000000 -1.00000000 "
        "0.00000000\nv 1.00000000 1.00000000 0.00000000\n"
        "vt 0.00000000 1.00000000\nvt 1.00000000 1.00000000\nvt 1.00000000 0.00000000\nusemtl skin\nf  3/1 2/2 1/3\n");
    EXPECT_EQ(Text(folder + "figure_leg.OBJ"),
              "mtllib figure.mtl\n# Vertex Count 4\nv -1.00000000 -1.00000000 0.00000000\nv 1.00000000 1.00000000 "
              "0.00000000\nv -1.00000000 1.00000000 0.00000000\nv 5.00000000 5.00000000 5.00000000\n"
              "vt 0.00000000 0.00000000\nvt 1.00000000 0.00000000\nvt 1.00000000 1.00000000\nvt 0.00000000 1.00000000\n"
              "usemtl skin\nf  1/1 2/2 3/3\nusemtl nail\nf  3/3 4/4 1/1\n");
    EXPECT_EQ(Text(folder + "figure.mtl").rfind("newmtl skin\n", 0), 0u);

    // Only a group with a vertex that moved further than a millionth of the diagonal.
    options.changedGroupsOnly = options.verticesOnly = true;
    Mesh().ResolvedVertices[4][1] += Mesh().BoundsDiagonal * 1e-5f;
    ASSERT_TRUE(QLM_WriteObjGroups(&Mesh(), folder + "new.obj", options));
    EXPECT_FALSE(fs::exists(folder + "new_left arm.OBJ"));
    EXPECT_EQ(Text(folder + "new_leg.OBJ").find("f "), std::string::npos);
    // What can't be written is told, the rest is.
    fs::create_directory(folder + "part_leg.OBJ");
    EXPECT_FALSE(QLM_WriteObjGroups(&Mesh(), folder + "part.obj", {}));
    EXPECT_TRUE(WasTold("Error creating the file " + folder + "part_leg.OBJ"));
    EXPECT_TRUE(fs::exists(folder + "part_left arm.OBJ"));

    const std::string longName(1500, 'n');
    ASSERT_TRUE(Read("g " + longName + "\n" + Square + "f 1 2 3\n"));
    EXPECT_FALSE(QLM_WriteObjGroups(&Mesh(), folder + "long.obj", {}));
    EXPECT_TRUE(WasTold("Error creating the file " + folder + "long_" + longName + ".OBJ"));

    const std::string told = "1 polygon(s) lie in no group, so no file holds them.";
    ASSERT_TRUE(Read(Square + "f 1 2 3\ng leg\nf 1 3 4\n"));
    ASSERT_TRUE(QLM_WriteObjGroups(&Mesh(), folder + "loose.obj", {}));
    EXPECT_TRUE(WasTold(told));
}

TEST_F(ObjRoundTrip, MaterialsKeepMapsThatWereNotFoundAndUnsavedOnesAreNamed) {
    Put("a.mtl", "newmtl one\nmap_Kd not there.png\nmap_d mask.tif\n");
    ASSERT_TRUE(Read("mtllib a.mtl\nusemtl one\n" + Square + "f 1 2 3\n"));
    std::string failed;
    ASSERT_TRUE(QLM_WriteObjFile(&Mesh(), folder + "b.obj", {}, failed));
    EXPECT_NE(Text(folder + "b.mtl").find("map_kd not there.png\nmap_d mask.tif\n"), std::string::npos);

    QLM_Object* painted =
        scene.AddObject("painted", {0, 0, 0, 1, 0, 0, 1, 1, 0}, {0, 0, 1, 0, 1, 1}, {{{0, 0}, {1, 1}, {2, 2}}});
    QLM_MaterialMapSource* map = scene.AddMap(painted, 4, 4, 1, 2, 3);
    QLM_IOManager& io = *QLM_GetManagers().GetIOManager();
    const std::string told = "These image maps have not been saved yet: " + std::string(map->GetName());
    ASSERT_TRUE(io.ExportObjectFile(painted->GetMesh(), folder + "c.obj", false, true));
    EXPECT_TRUE(WasTold(told));
    EXPECT_NE(Text(folder + "c.mtl").find("map_kd " + std::string(map->GetName()) + "\n"), std::string::npos);
    ASSERT_TRUE(QLM_GetManagers().GetMapManager()->ExportImageMap(map, folder + "map.png", error)) << error;
    QLM_OS::Get().recorded.clear();
    ASSERT_TRUE(io.ExportObjectFile(painted->GetMesh(), folder + "c.obj", false, true));
    EXPECT_FALSE(WasTold(told));

    // Files that their maps' names don't lead to are told by path, those that look like switches by name.
    fs::create_directory(folder + "skins");
    fs::copy_file(folder + "map.png", folder + "skins/100%.png");
    fs::copy_file(folder + "map.png", folder + "map -b.png");
    Put("d.mtl", "newmtl d\nmap_Kd skins\\100%.png\nmap_Bump map -b.png\nKd 1 nan 0\nd inf\n");
    ASSERT_TRUE(io.ImportDroppedFile(Put("d.obj", "mtllib d.mtl\nusemtl d\n" + Square + "f 1 2 3\n")));
    QLM_Object* skinned = QLM_GetManagers().GetObjectManager()->GetCurrentObject();
    ASSERT_TRUE(io.ExportObjectFile(skinned->GetMesh(), folder + "e.obj", false, true));
    EXPECT_EQ(Text(folder + "e.mtl"),
              "newmtl d\nKa 1.000000 1.000000 1.000000\nKd 1.000000 1.000000 1.000000\nKs 1.000000 1.000000 1.000000\n"
              "d 1.0000\nmap_kd skins/100%.png\nmap_Bump map -b.png\n");
}

} // namespace
