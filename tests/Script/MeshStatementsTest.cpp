// The statements of meshes, on a cube whose faces share no vertices.

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Script/QLM_ScriptPlayer.h"
#include "Support/TestScene.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

std::string WriteFile(const std::string& name, const std::string& text) {
    const std::string path = QLM_OS::GetTempPath() + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    std::fputs(text.c_str(), file);
    std::fclose(file);
    return path;
}

/// The cube of side 2 around the origin, four vertices and a group a face.
void WriteLooseCube() {
    static const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    std::string text;
    for (const auto& face : faces)
        for (const int i : face) text += QLM_FormatText("v %d %d %d\n", i & 1 ? 1 : -1, i & 2 ? 1 : -1, i & 4 ? 1 : -1);
    for (int f = 0; f < 6; ++f)
        text += QLM_FormatText("g face%d\nf %d %d %d %d\n", f, 4 * f + 1, 4 * f + 2, 4 * f + 3, 4 * f + 4);
    WriteFile("loose_cube.obj", text);
}

/// Plays a script and returns the values of `key` in its report lines, in order; other lines give nothing.
std::vector<std::string> Play(const std::string& text, const char* key) {
    char* reports = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&reports, &size);
    QLM_Engine* engine = QLM_GetEngine();
    QLM_ScriptPlayer player({nullptr, [=] { return engine->IdlePass(); }, [=] { engine->DrawFrame(); }},
                            QLM_OS::GetTempPath(), stream);
    EXPECT_EQ(player.Play(WriteFile("mesh_statements.qscript", text)), 0);
    std::fclose(stream);
    const std::string all = reports;
    std::free(reports);
    std::vector<std::string> values;
    const std::regex pattern(std::string("\"") + key + "\": (\"[^\"]*\"|\\[[^\\]]*\\]|[^,}]*)");
    for (std::sregex_iterator i(all.begin(), all.end(), pattern), end; i != end; ++i) values.push_back((*i)[1]);
    return values;
}

using Values = std::vector<std::string>;

TEST(MeshStatements, WeldAndSmoothing) {
    TestScene scene;
    WriteLooseCube();
    const char* welding = R"script(import loose_cube.obj
report mesh loose_cube
fails unweld
fails reweld
fails weld -1
fails weld 0.01 closed
weld 0.001 open groups
expect message "Welded the vertices in (1) object(s)"
report mesh loose_cube
unweld
report mesh loose_cube
reweld
report mesh loose_cube
)script";
    EXPECT_EQ(Play(welding, "open_edges"), (Values{"24", "0", "24", "0"}));
    // Welded, 8 vertices are in use: at 0 degrees 16 normals come on top of the 24 slots.
    EXPECT_EQ(Play("smoothing 0\nreport mesh loose_cube\nsmoothing 180\nreport mesh loose_cube\nfails smoothing x\n",
                   "normals"),
              (Values{"40", "24"}));
    // Smooth, a face's corners differ from each other; flat, they don't: not the same hash.
    const Values hashes = Play("report mesh loose_cube\nsmoothing 30\nreport mesh loose_cube\n", "corner_normal_hash");
    ASSERT_EQ(hashes.size(), 2u);
    EXPECT_NE(hashes[0], hashes[1]);
    EXPECT_EQ(Play("option WeldThreshold 3\nfails option WeldThreshold -1\noption WeldThreshold 4\n", "x"), Values{});
}

TEST(MeshStatements, TransformPickAndProperties) {
    TestScene scene(256, 256);
    WriteLooseCube();
    const char* picks = R"(import loose_cube.obj
object select loose_cube
frame object
pick 128 128
pick 1 1
view right
pick 128 128
view front
transform pos 0 0 0.5
pick 128 128
transform scale 0.5 0.5 0.5
pick 128 128
transform rotate 0 90 0
pick 128 128
fails pick 900 900
fails transform shear 1 0 0
fails transform pos 1 0 up
)";
    // A turn by 90 degrees about y carries +x to -z: what faces the viewer is the face at -x or at +x.
    const Values polygons = Play(picks, "polygon");
    ASSERT_EQ(polygons.size(), 6u);
    EXPECT_EQ(Values(polygons.begin(), polygons.begin() + 2), (Values{"1", "-1"}));
    EXPECT_TRUE(polygons[2] == "4" || polygons[2] == "5");
    EXPECT_EQ(polygons[4], "1");
    EXPECT_TRUE(polygons[5] == "4" || polygons[5] == "5");

    QLM_Object* cube = QLM_GetManagers().GetObjectManager()->GetCurrentObject();
    EXPECT_NEAR(cube->GetMesh()->ResolvedBoundsMax[0], 1.0f, 1e-6f);
    EXPECT_NEAR(cube->GetMesh()->TransformedBoundsMax[2], 1.0f, 1e-6f); // 0.5 in half size plus 0.5
    EXPECT_NEAR(cube->GetMesh()->TransformedBoundsMin[0], -0.5f, 1e-6f);
    EXPECT_EQ(Play("transform rotate 0 0 0\npick 128 128\n", "object"), (Values{"\"loose_cube\""}));

    Play(R"(property loose_cube note "a text"
property loose_cube/mesh autoWrapUVs on
property loose_cube/face3 number 7
property loose_cube "x y" 0.5
fails property loose_cube/nobody a 1
fails property nobody a 1
material select loose_cube/loose_cube
fails material loose_cube/nobody
)",
         "x");
    EXPECT_EQ(cube->GetString("note"), "a text");
    EXPECT_TRUE(cube->GetMesh()->GetBool("autoWrapUVs"));
    EXPECT_EQ(cube->GetMesh()->GetGroup(3)->GetInt("number"), 7);
    EXPECT_EQ(cube->GetFloat("x y"), 0.5f);
}

} // namespace
