// Objects written, read and written again; damaged records; references to files.

#include "MeshTestSupport.h"

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_ObjectManager.h"
#include "RecordTestSupport.h"
#include "Support/Rounds.h"
#include "Support/TestScene.h"

#include <cmath>
#include <fstream>

namespace {
constexpr const char* outputSwitches[] = {"OUTPUT_DISPLAY_GROUPS", "OUTPUT_MATERIALS", "OUTPUT_GROUPS",
                                          "OUTPUT_MORPHS", "OUTPUT_SELECTIONS"};

/// All that a save of a whole project asks for; the switches are off again afterwards.
struct WholeProject {
    WholeProject() { Set(true); }
    ~WholeProject() { Set(false); }
    static void Set(bool on) {
        for (const char* key : outputSwitches) QLM_GetManagers().GetIOManager()->SetBool(key, on);
    }
};

/// A seed of the fuzz target.
std::string ReadSeed(const std::string& name) {
    std::ifstream file(QLM_SOURCE_DIR "/tests/fuzz/corpus/object/" + name + ".object", std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), {});
}

std::string LastMessage() {
    const auto& recorded = QLM_OS::Get().recorded;
    return recorded.empty() ? "" : recorded.back().text;
}

/// Reads the lines of an object's mesh block. `raw` are blocks behind the lines.
struct ReadMesh {
    explicit ReadMesh(const std::string& body) {
        QLM_OS::Get().recorded.clear();
        succeeded = ReadBlock(object, "{\nFileName\ta.obj\nmesh\t\n{\n" + body + "}\nOBJFileName\tb.obj\n}\n");
        mesh = object.GetMesh();
    }
    QLM_Object object;
    QLM_Mesh* mesh;
    bool succeeded;
};

/// A block with plain bytes, as a reader takes it too.
template <class Number> std::string RawBlock(const std::string& name, const std::vector<Number>& values) {
    const std::string bytes(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(Number));
    return name + "\t\n{\nrawDataSize\t" + std::to_string(bytes.size()) + "\nDATA_BEGIN\n" + bytes + "\nDATA_END\n}\n";
}

void SetDeltas(QLM_Mesh& mesh, QLM_Morph* morph, uint32_t seed) {
    QLM_RandomGenerator random(seed);
    const QLM_MorphUse use(mesh, morph, "test");
    for (int v = 0; v < mesh.GetVCount(); v += 3)
        morph->GetVertex(v)[v % 3] = 0.01f * static_cast<float>(random.Next(50));
    morph->MarkChanged();
}

/// Everything a record can hold, on a mesh with seams, non-manifold edges and isolated vertices.
QLM_Object* MakeFullObject(TestScene& scene) {
    QLM_RandomGenerator random(11);
    std::vector<float> vertices, uvs;
    for (int i = 0; i < 180; ++i) vertices.push_back(static_cast<float>(random.Next(1000)) / 777.0f);
    for (int i = 0; i < 80; ++i) uvs.push_back(static_cast<float>(random.Next(100)) / 99.0f);
    std::vector<TestPolygon> polygons(70);
    for (TestPolygon& corners : polygons)
        for (uint32_t n = 1 + random.Next(6); n > 0; --n) corners.emplace_back(random.Next(57), random.Next(40));
    QLM_Object* object = scene.AddObject("Figure (1)", vertices, uvs, polygons);
    object->FileName = "figures/figure.obj";
    object->OBJFileName = "figure.obj";
    object->RenderDoubleSided = object->SymmetryEnabled = true;
    object->SetString("note/author", "somebody else", QLM_CustomPropertyContainer::Saved);
    object->SetFloat("scale", 0.125f, QLM_CustomPropertyContainer::Saved);
    object->SetInt("passing", 5, QLM_CustomPropertyContainer::Temporary);

    QLM_Mesh& mesh = *object->GetMesh();
    mesh.SetBool("mesh/own", true, QLM_CustomPropertyContainer::Saved);
    mesh.AddMaterial(new QLM_Material);
    mesh.GetMaterial(1)->SetNameText("skin");
    mesh.GetMaterial(1)->Color->Color[1] = 0.3f;
    auto* group = new QLM_Group2;
    group->SetNameText("left arm");
    mesh.AddGroup(group);
    for (int p = 0; p < 70; p += 2) mesh.SetPolygonMaterial(p, 1);
    for (int p = 0; p < 70; p += 3) mesh.SetPolygonGroup(p, 1);
    mesh.ReferenceObject = true;
    mesh.SymmetryAxis = 2;
    mesh.SymmetryOffset = 0.1f;
    mesh.SymmetryPrecision = 4.5f;
    mesh.SymmetryPreSmoothB = true;
    mesh.SetMaxSmoothingAngle(42.25f);
    for (int k = 0; k < 3; ++k) mesh.Transform_Pos[k] = 0.3f * static_cast<float>(k), mesh.Transform_Scale[k] = 1.7f;
    mesh.Transform_RotationMatrix[0] = mesh.Transform_RotationMatrix[5] = 0.0f;
    mesh.Transform_RotationMatrix[1] = -1.0f;
    mesh.Transform_RotationMatrix[4] = 1.0f;
    mesh.SetWeldTarget(7, 3);
    mesh.SetWeldTarget(20, 3);

    SetDeltas(mesh, mesh.GetCurrentMorph(), 1);
    QLM_Morph* smile = mesh.CreateMorph();
    smile->SetNameText("smile");
    smile->Strength = 0.6f;
    SetDeltas(mesh, smile, 2);
    QLM_LayerManager* layers = QLM_GetManagers().GetLayerManager();
    for (const char* name : {"arms", "legs"}) {
        QLM_DisplayGroup* layer = layers->CreateDisplayGroup(name);
        for (int p = layer->Column; p < 70; p += 5) mesh.SetFlag(p, layer->Column, true);
    }
    mesh.AfterRawBuild();
    mesh.InvalidateOptimizedDeltas();
    QLM_GetManagers().GetObjectManager()->OnShapeChanged(object, true, true, true);
    return object;
}

void ExpectSameMesh(QLM_Mesh& a, QLM_Mesh& b) {
    ASSERT_EQ(a.GetVCount(), b.GetVCount());
    ASSERT_EQ(a.GetVTCount(), b.GetVTCount());
    ASSERT_EQ(a.GetPCount(), b.GetPCount());
    for (int v = 0; v < a.GetVCount(); ++v) {
        EXPECT_EQ(a.GetWeldTarget(v), b.GetWeldTarget(v));
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(a.Vertices[v][k], b.Vertices[v][k]);
            EXPECT_NEAR(a.ResolvedVertices[v][k], b.ResolvedVertices[v][k], 1e-6f);
        }
    }
    for (int t = 0; t < a.GetVTCount(); ++t)
        for (int k = 0; k < 2; ++k) EXPECT_EQ(a.TextureVertices[t][k], b.TextureVertices[t][k]);
    for (int p = 0; p < a.GetPCount(); ++p) {
        EXPECT_EQ(a.GetPolygonMaterial(p), b.GetPolygonMaterial(p));
        EXPECT_EQ(a.GetPolygon(p).group, b.GetPolygon(p).group);
        ASSERT_EQ(a.GetPolygonVertexCount(p), b.GetPolygonVertexCount(p));
        for (int i = 0; i < a.GetPolygonVertexCount(p); ++i) {
            EXPECT_EQ(a.GetPolygonRawVertex(p, i), b.GetPolygonRawVertex(p, i));
            EXPECT_EQ(a.GetPolygonTextureVertex(p, i), b.GetPolygonTextureVertex(p, i));
        }
        for (int column = 0; column < 5; ++column) EXPECT_EQ(a.GetFlag(p, column), b.GetFlag(p, column)) << p;
    }
    EXPECT_EQ(a.GetEdgeCount(), b.GetEdgeCount());
}
} // namespace

TEST(ObjectRecord, WritingReadingAndWritingAgainGivesTheSameBytes) {
    TestScene scene;
    const WholeProject switches;
    QLM_Object* object = MakeFullObject(scene);
    const std::string first = WriteTree(*QLM_GetManagers().GetObjectManager()->GetTree());

    QLM_Owned<QLM_ObjectTreeGroup> tree(new QLM_ObjectTreeGroup);
    tree->topLabel = "objects";
    ASSERT_TRUE(ReadBlock(*tree, first));
    auto objects = tree->GetItemQueue<QLM_Object>();
    ASSERT_EQ(objects.size(), 1u);
    QLM_Object* copy = objects;
    EXPECT_STREQ(copy->GetName(), "Figure (1)");
    EXPECT_EQ(copy->OBJFileName, "figure.obj");
    EXPECT_TRUE(copy->RenderDoubleSided && copy->SymmetryEnabled);
    EXPECT_EQ(copy->GetString("note/author"), "somebody else");
    EXPECT_FALSE(copy->HasProperty("passing"));
    ASSERT_TRUE(copy->GetMesh());
    QLM_Mesh& mesh = *copy->GetMesh();
    ExpectSameMesh(*object->GetMesh(), mesh);
    EXPECT_TRUE(mesh.GetBool("mesh/own"));
    EXPECT_FALSE(mesh.HasProperty("loading_vcount"));
    ASSERT_EQ(mesh.GetMaterialCount(), 2);
    EXPECT_EQ(mesh.GetMaterial(1)->Color->Color[1], 0.3f);
    EXPECT_EQ(mesh.FindGroupByName("left arm"), 1);
    EXPECT_TRUE(mesh.ReferenceObject && mesh.SymmetryPreSmoothB && mesh.IsWelded());
    EXPECT_EQ(mesh.SymmetryAxis, 2u);
    EXPECT_EQ(mesh.GetMaxSmoothingAngle(), 42.25f);
    QLM_RootClassQueue<QLM_Morph*> morphs;
    mesh.GetMorphs(morphs);
    ASSERT_EQ(morphs.size(), 2u);
    EXPECT_EQ(mesh.FindMorph("smile")->Strength, 0.6f);
    EXPECT_EQ(WithoutIDs(WriteTree(*tree)), WithoutIDs(first));

    // What the writer isn't asked for is left out, and so is the object itself.
    WholeProject::Set(false);
    const std::string bare = WriteObject(*object);
    for (const char* key : {"\tmaterial\t", "\tpolygroup\t", "\tmorphs\t", "\tLayerFlags\t"}) {
        EXPECT_EQ(bare.find(key), std::string::npos) << key;
        EXPECT_NE(first.find(key), std::string::npos) << key;
    }
    object->SetBool("excludeFromSaving", true);
    EXPECT_EQ(WriteObject(*object), "");
}

TEST(ObjectRecord, ThinMeshesComeBackToo) {
    TestScene scene;
    const WholeProject switches;
    const std::vector<TestPolygon> none;
    QLM_Object* objects[] = {scene.AddObject("empty", {}, {}, none), scene.AddObject("point", {1, 2, 3}, {}, none),
                             scene.AddObject("corners", {0, 0, 0, 1, 0, 0}, {}, {{}, {{1, -1}}, {{0, -1}, {0, -1}}})};
    for (QLM_Object* object : objects) {
        const std::string first = WriteObject(*object);
        QLM_Object copy;
        EXPECT_TRUE(ReadBlock(copy, first));
        EXPECT_EQ(WithoutIDs(WriteObject(copy)), WithoutIDs(first)) << object->GetName();
        ExpectSameMesh(*object->GetMesh(), *copy.GetMesh());
    }
    QLM_Object bare; // no mesh at all
    EXPECT_EQ(WriteObject(bare).find("mesh"), std::string::npos);
}

TEST(ObjectRecord, CountsThatTheFileCannotHoldAreRefused) {
    for (const char* key : {"vcount", "vtcount", "pcount"}) {
        const ReadMesh read(std::string(key) + "\t2000000000\n");
        EXPECT_FALSE(read.succeeded);
        EXPECT_NE(LastMessage().find(key), std::string::npos) << LastMessage();
        EXPECT_NE(LastMessage().find("2000000000"), std::string::npos);
        EXPECT_EQ(read.mesh->GetVCount() + read.mesh->GetVTCount() + read.mesh->GetPCount(), 0);
    }
    EXPECT_FALSE(ReadMesh("vcount\t-1\n").succeeded);
    // What stood before stays and is usable; the object's own lines go unread.
    const ReadMesh read("vcount\t3\npcount\t0\n" + RawBlock<float>("vertices", {0, 0, 0, 4, 0, 0, 0, 3, 0}) +
                        "mcount\t1\npolygroup\tarm\n{\n}\nvtcount\t1900000000\nReferenceObject\t1\n");
    EXPECT_FALSE(read.succeeded);
    EXPECT_EQ(read.mesh->BoundsDiagonal, 5.0f);
    EXPECT_EQ(read.mesh->FindGroupByName("arm"), 0);
    EXPECT_FALSE(read.mesh->ReferenceObject);
    EXPECT_EQ(read.object.FileName, "a.obj");
    EXPECT_EQ(read.object.OBJFileName, "");
}

TEST(ObjectRecord, OddRecordsAreReadAsFarAsTheyGo) {
    const ReadMesh early("pcount\t1\nvcount\t3\nForceColorTextureDisplay\t1\nSYMMETRYAXIS\t1\nSymmetryOffset\tnan\n"
                         "Transform_Scale\t1 inf 1\nunknown\t5\nselections\t\n{\nitem\ta\n{\n}\n}\n");
    EXPECT_TRUE(early.succeeded);
    EXPECT_EQ(early.mesh->GetVCount(), 0);
    EXPECT_EQ(early.mesh->GetPCount(), 1);
    EXPECT_TRUE(early.mesh->ReferenceObject);
    EXPECT_EQ(early.mesh->SymmetryAxis, 1u);
    EXPECT_EQ(early.mesh->SymmetryOffset, 0.0f);
    EXPECT_EQ(early.mesh->Transform_Scale[1], 1.0f);
    EXPECT_EQ(early.object.OBJFileName, "b.obj");

    // The older names, corners without a vertex, and a polygon beyond the limit of corners.
    std::vector<uint8_t> polygons;
    const auto add = [&](auto... numbers) {
        (polygons.insert(polygons.end(), reinterpret_cast<const uint8_t*>(&numbers),
                         reinterpret_cast<const uint8_t*>(&numbers) + sizeof numbers), ...);
    };
    add(uint16_t{0}, uint16_t{5}, uint16_t{3}, int32_t{0}, int32_t{0}, int32_t{9}, int32_t{0}, int32_t{2}, int32_t{7});
    add(uint16_t{0}, uint16_t{0}, uint16_t{1003});
    for (int32_t i = 0; i < 1003; ++i) add(i % 3, int32_t{-1});
    const std::string head = "vcount\t3\nvtcount\t1\npcount\t2\n" +
                             RawBlock<float>("vertices", {0, 0, 0, NAN, 0, 0, 0, 3, 0}) +
                             RawBlock<float>("tvertices", {0.5f, 0.5f});
    const ReadMesh odd(head + RawBlock("polygons", polygons) + RawBlock<int32_t>("weldmap", {-7, 0, 3}));
    EXPECT_TRUE(odd.succeeded) << LastMessage();
    EXPECT_EQ(odd.mesh->GetPolygonVertexCount(0), 2);
    EXPECT_EQ(odd.mesh->GetPolygonVertex(0, 1), 2);
    EXPECT_EQ(odd.mesh->GetPolygonTextureVertex(0, 1), 0);
    EXPECT_EQ(odd.mesh->GetPolygonVertexCount(1), 1000);
    EXPECT_EQ(odd.mesh->GetPolygonVertex(1, 1), 0); // welded
    EXPECT_EQ(odd.mesh->Vertices[1][0], 0.0f);
    EXPECT_EQ(odd.mesh->GetWeldTarget(0), 0);
    EXPECT_EQ(odd.mesh->GetWeldTarget(2), 2);

    // Blocks of another size fail with their name.
    for (const char* block : {"vertices", "tvertices", "polygons", "weldmap"}) {
        EXPECT_FALSE(ReadMesh(head + RawBlock<int32_t>(block, {1, 2, 3, 4})).succeeded);
        EXPECT_NE(LastMessage().find(block), std::string::npos) << LastMessage();
    }
    polygons.pop_back();
    const ReadMesh cut(head + RawBlock("polygons", polygons));
    EXPECT_FALSE(cut.succeeded);
    EXPECT_EQ(cut.mesh->GetPolygonVertexCount(0), 2);
}

TEST(ObjectRecord, OlderRecordsAreRead) {
    TestScene scene;
    QLM_LayerManager* layers = QLM_GetManagers().GetLayerManager();
    QLM_Object object;
    ASSERT_TRUE(ReadBlock(object, ReadSeed("old")));
    QLM_Mesh& mesh = *object.GetMesh();
    ASSERT_EQ(mesh.GetPCount(), 4);
    EXPECT_EQ(mesh.GetPolygonVertexCount(0), 4);
    EXPECT_EQ(mesh.GetPolygonVertexCount(2), 1);
    EXPECT_TRUE(mesh.ReferenceObject);
    EXPECT_EQ(mesh.GetWeldTarget(4), 2);
    EXPECT_EQ(mesh.GetMaterial(0)->Color->Strength, 0.5f);
    EXPECT_EQ(mesh.GetGroup(0)->Vertices.size(), 4u); // its own square, and what "left arm" adds
    const QLM_DisplayGroup *hidden = layers->FindColumn(QLM_LayerManager::HiddenLayer),
                           *locked = layers->FindColumn(QLM_LayerManager::LockedLayer);
    EXPECT_TRUE(layers->GetFlag(hidden, &mesh, 1) && layers->GetFlag(locked, &mesh, 3));
    EXPECT_FALSE(layers->GetFlag(hidden, &mesh, 3) || layers->GetFlag(locked, &mesh, 1));
    QLM_RootClassQueue<QLM_Morph*> morphs;
    mesh.GetMorphs(morphs);
    ASSERT_EQ(morphs.size(), 2u); // and no automatic one
    const QLM_MorphUse use(mesh, mesh.FindMorph("old"), "test");
    EXPECT_EQ(use.GetDeltas()[5], 0.25f);
    EXPECT_EQ(use.GetDeltas()[12], 0.1f);
    EXPECT_EQ(mesh.ResolvedVertices[1][2], 0.125f);
}

TEST(ObjectRecord, EveryCutAndManyMutationsLeaveAUsableObject) {
    const std::string seed = ReadSeed("full"), plain = ReadSeed("old"); // the latter without compression
    ASSERT_GT(seed.size(), 3000u);
    ASSERT_GT(plain.size(), 800u);
    TestScene scene;
    const WholeProject switches;
    const int threads = QLM_OS::GetNumberOfThreads();
    QLM_ShutdownCrunchers(); // tiny meshes would wait for workers most of the time
    QLM_OS::SetNumberOfThreads(1);
    EXPECT_TRUE(ReadAndUse(seed));
    ResetPeakMemory();
    const int64_t before = PeakMemory();
    constexpr size_t step = Rounds<size_t>(1, 17);
    for (size_t size = 0; size < seed.size(); size += step) ReadAndUse(seed.substr(0, size));
    for (size_t size = 0; size < plain.size(); size += step) ReadAndUse(plain.substr(0, size));

    QLM_RandomGenerator random(5);
    for (int round = 0; round < Rounds(10000, 300); ++round) {
        std::string bytes = round % 2 ? seed : plain;
        for (uint32_t n = 1 + random.Next(4); n > 0; --n) Mutate(bytes, random);
        ReadAndUse(bytes);
        QLM_OS::Get().recorded.clear();
        if (HasFailure()) FAIL() << "round " << round;
    }
    if (IsMemoryMeasured()) {
        EXPECT_LT(PeakMemory() - before, 1100 * static_cast<int64_t>(plain.size()) + (64 << 20));
    }
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(threads);
}

TEST(ObjectRecord, ReferencesReadTheirFileAgain) {
    TestScene scene;
    const WholeProject switches;
    QLM_IOManager* io = QLM_GetManagers().GetIOManager();
    const std::string folder = QLM_OS::GetTempPath(), path = folder + "quillmere-record-asset.obj";
    std::ofstream(path) << "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\ng arm\nusemtl skin\nf 1/1 2/1 3/1\n";
    ASSERT_TRUE(io->ImportGeometryFile(nullptr, path, QLM_ImporterCode::OBJ, 0));
    QLM_Object* object = QLM_GetManagers().GetObjectManager()->GetCurrentObject();
    object->SetBool("isFixedAsset", true, QLM_CustomPropertyContainer::Saved);
    std::string backslashes = path;
    std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
    object->SetString("fixedAsset/path", backslashes, QLM_CustomPropertyContainer::Saved);
    object->GetMesh()->GetMaterial(0)->Specular->Strength = 0.25f;
    const std::string record = WriteObject(*object);
    EXPECT_EQ(record.compare(0, 15, "objectReference"), 0);
    EXPECT_EQ(record.find("verticesBinary"), std::string::npos);
    EXPECT_FALSE(object->HasProperty("vcount"));

    const auto read = [&](QLM_Object& target, const std::string& from, const std::string& to) {
        std::string changed = record;
        for (size_t at = 0; !from.empty() && (at = changed.find(from, at)) != std::string::npos; at += to.size())
            changed.replace(at, from.size(), to);
        QLM_OS::Get().recorded.clear();
        for (const char* key : {"INPUT_WARN_GEOMETRY_ERROR_DATA_OMITTED", "INPUT_WARN_UV_MISMATCH"})
            io->SetBool(key, false);
        return ReadBlock(target, changed);
    };
    QLM_Object same;
    EXPECT_TRUE(read(same, "", ""));
    ASSERT_TRUE(same.GetMesh());
    EXPECT_EQ(same.GetMesh()->GetPCount(), 1);
    EXPECT_EQ(same.GetMesh()->GetMaterial(0)->Specular->Strength, 0.25f);
    EXPECT_EQ(same.GetMesh()->GetMaterialCount(), 1);
    EXPECT_EQ(WithoutIDs(WriteObject(same)), WithoutIDs(record));

    QLM_Object noMaterial, noGroup, noFile, otherCount, otherUVs;
    EXPECT_FALSE(read(noMaterial, "material\tskin", "material\thide"));
    EXPECT_EQ(LastMessage(), std::string("Cannot find the material 'hide' for the object '") + noMaterial.GetName() +
                                 "' ( loading as fixed asset, material does not exist in original object) ");
    EXPECT_FALSE(read(noGroup, "polygroup\tarm", "polygroup\tleg"));
    EXPECT_EQ(LastMessage(), std::string("Cannot find the group 'leg' for the object '") + noGroup.GetName() +
                                 "' ( loading as fixed asset, group does not exist in original object) ");
    EXPECT_TRUE(noGroup.GetMesh());
    EXPECT_TRUE(read(noFile, "record-asset", "record-nothing"));
    EXPECT_FALSE(noFile.GetMesh());
    EXPECT_NE(LastMessage().find("record-nothing"), std::string::npos);

    // The file holds other geometry by now.
    std::ofstream(path) << "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nvt 0 0\ng arm\nusemtl skin\nf 1/1 2/1 3/1\n";
    EXPECT_FALSE(read(otherCount, "", "")); // stops at the morphs
    EXPECT_TRUE(io->GetBool("INPUT_WARN_GEOMETRY_ERROR_DATA_OMITTED"));
    EXPECT_FALSE(io->GetBool("INPUT_WARN_UV_MISMATCH"));
    EXPECT_EQ(otherCount.GetMesh()->GetMaterial(0)->Specular->Strength, 0.25f);
    EXPECT_EQ(otherCount.GetMesh()->GetVertexNeighborCount(3), 0);
    std::ofstream(path) << "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\ng arm\nusemtl skin\nf 1/1 2/2 3/1\n";
    EXPECT_FALSE(read(otherUVs, "", ""));
    EXPECT_TRUE(io->GetBool("INPUT_WARN_UV_MISMATCH"));
    std::remove(path.c_str());
}
