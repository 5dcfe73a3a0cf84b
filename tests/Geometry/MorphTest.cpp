// Morphs: the sum that they resolve to, parking, records, and the operations over all objects.

#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/MeshTestSupport.h"
#include "Geometry/QLM_MorphManager.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/RecordTestSupport.h"
#include "Script/QLM_ScriptPlayer.h"
#include "Support/Rounds.h"
#include "Support/TestScene.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

#include <cmath>
#include <regex>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int vertexCount = 5000, morphCount = 40;
#else
constexpr int vertexCount = 100000, morphCount = 200;
#endif

/// A number from -0.5 to 0.5 that hangs on both arguments.
float Noise(uint32_t series, int64_t i) {
    uint32_t x = static_cast<uint32_t>(i) * 2654435761u ^ (series + 1) * 0x9e3779b9u;
    x = (x ^ x >> 15) * 0x85ebca6bu;
    x = (x ^ x >> 13) * 0xc2b2ae35u;
    return static_cast<float>((x ^ x >> 16) >> 8) * 0x1p-24f - 0.5f;
}

MeshOwner MakePoints(int count) {
    QLM_VirtualMemory_Initialize();
    std::vector<float> positions(3 * static_cast<size_t>(count));
    for (size_t i = 0; i < positions.size(); ++i) positions[i] = Noise(100000, static_cast<int64_t>(i));
    return MakeMesh(positions, {}, {});
}

QLM_Morph* AddMorph(QLM_Mesh& mesh, const std::string& name, float strength, uint32_t series) {
    QLM_Morph* morph = mesh.CreateMorph();
    morph->SetNameText(name);
    morph->Strength = strength;
    const QLM_MorphUse use(mesh, morph, "AddMorph");
    for (int64_t i = 0; i < 3LL * mesh.GetVCount(); ++i) use.GetDeltas()[i] = Noise(series, i);
    morph->MarkChanged();
    return morph;
}

/// base + (sum of the others in tree order) + current, one morph and one vertex after the other. Morph m has series m.
std::vector<float> PlainSum(QLM_Mesh& mesh, const std::vector<QLM_Morph*>& morphs, const QLM_Morph* current) {
    const size_t size = 3 * static_cast<size_t>(mesh.GetVCount());
    std::vector<float> all(size, 0.0f);
    size_t currentIndex = morphs.size();
    for (size_t m = 0; m < morphs.size(); ++m) {
        if (morphs[m] == current) currentIndex = m;
        else
            for (size_t i = 0; i < size; ++i)
                all[i] += morphs[m]->Strength * Noise(static_cast<uint32_t>(m), static_cast<int64_t>(i));
    }
    for (size_t i = 0; i < size; ++i) {
        all[i] = mesh.Vertices.GetData()[i] + all[i];
        if (currentIndex < morphs.size())
            all[i] += current->Strength * Noise(static_cast<uint32_t>(currentIndex), static_cast<int64_t>(i));
    }
    return all;
}

std::vector<float> Resolved(QLM_Mesh& mesh) {
    mesh.ResolveMorphs(false);
    const float* data = mesh.ResolvedVertices.GetData();
    return {data, data + 3LL * mesh.GetVCount()};
}

float Deviation(const std::vector<float>& a, const std::vector<float>& b) {
    float greatest = a.size() == b.size() ? 0.0f : 1e9f;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) greatest = std::max(greatest, std::fabs(a[i] - b[i]));
    return greatest;
}

QLM_MorphManager& Manager() { return *QLM_GetManagers().GetMorphManager(); }

} // namespace

TEST(Morphs, ResolveToTheSumInOrder) {
    const int threads = QLM_OS::GetNumberOfThreads();
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(7);
    MeshOwner mesh = MakePoints(vertexCount);
    std::vector<QLM_Morph*> morphs;
    delete mesh->GetCurrentMorph();
    for (int m = 0; m < morphCount; ++m)
        morphs.push_back(AddMorph(*mesh, "m" + std::to_string(m), 0.5f + Noise(7, m), static_cast<uint32_t>(m)));

    // Without and with a current morph, to the bit; the box holds all, and never less than the raw one.
    EXPECT_EQ(Resolved(*mesh), PlainSum(*mesh, morphs, nullptr));
    mesh->SetCurrentMorph(morphs[morphCount / 3]);
    mesh->InvalidateOptimizedDeltas();
    const std::vector<float> shape = Resolved(*mesh);
    EXPECT_EQ(shape, PlainSum(*mesh, morphs, mesh->GetCurrentMorph()));
    for (int k = 0; k < 3; ++k) {
        float least = mesh->BoundsMin[k], greatest = mesh->BoundsMax[k];
        for (size_t i = static_cast<size_t>(k); i < shape.size(); i += 3) {
            least = std::min(least, shape[i]);
            greatest = std::max(greatest, shape[i]);
        }
        EXPECT_EQ(mesh->ResolvedBoundsMin[k], least);
        EXPECT_EQ(mesh->ResolvedBoundsMax[k], greatest);
    }

    // A thousand changes keep the sums without a new one; only the current morph stays in memory.
    QLM_RandomGenerator random(5);
    for (int i = 0; i < Rounds(1000, 200); ++i) {
        QLM_Morph* morph = morphs[random.Next(morphCount)];
        const float strength = 0.001f * static_cast<float>(random.Next(1001));
        if (i % 4 == 3) mesh->SetCurrentMorph(i % 100 == 3 ? nullptr : morph);
        else mesh->UpdateMorphForOptimizedDeltas(morph, morph->Strength, strength);
    }
    ASSERT_TRUE(mesh->AreOptimizedDeltasValid());
    EXPECT_LT(Deviation(Resolved(*mesh), PlainSum(*mesh, morphs, mesh->GetCurrentMorph())),
              1e-5f * mesh->BoundsDiagonal);
    for (QLM_Morph* morph : morphs) EXPECT_EQ(morph->IsExpanded(), morph == mesh->GetCurrentMorph());
    mesh->InvalidateOptimizedDeltas();
    EXPECT_EQ(Resolved(*mesh), PlainSum(*mesh, morphs, mesh->GetCurrentMorph()));

    // Gone is gone, the current one too.
    mesh->SetCurrentMorph(morphs[morphCount - 2]);
    mesh->SetCurrentMorph(morphs[3]);
    for (int i = 0; i < 2; ++i) {
        mesh->DeleteMorph(morphs.back());
        morphs.pop_back();
    }
    EXPECT_EQ(Resolved(*mesh), PlainSum(*mesh, morphs, mesh->GetCurrentMorph()));
    delete mesh->GetCurrentMorph();
    EXPECT_EQ(mesh->GetCurrentMorph(), nullptr);
    EXPECT_EQ(mesh->GetCurrentMorphId(), 0u);
    EXPECT_EQ(mesh->GetCurrentDeltas(), nullptr);
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(threads);
}

TEST(Morphs, FormsAndStrengths) {
    MeshOwner mesh = MakePoints(1000);
    QLM_Morph* first = mesh->GetCurrentMorph();
    EXPECT_STREQ(first->GetName(), "Default Morph");
    EXPECT_EQ(std::vector<float>(mesh->Vertices.GetData(), mesh->Vertices.GetData() + 3000), Resolved(*mesh));
    EXPECT_EQ(mesh->GetAllDeformationsMinusCurrent().GetCount(), 0u);

    // Current stays in memory whatever its strength; the mark alone needs more than the threshold.
    first->Strength = 0.0f;
    mesh->EndUsingMorph(first);
    EXPECT_TRUE(first->IsExpanded() && mesh->IsMorphInUse(first));
    QLM_Morph* other = AddMorph(*mesh, "other", 0.25f, 1);
    other->SetCurrentFlag(true);
    for (const auto& [strength, stays] : {std::pair{-0.5f, true}, {2e-7f, true}, {1e-8f, false}, {0.0f, false}}) {
        other->Strength = strength;
        mesh->BeginUsingMorph(other);
        mesh->EndUsingMorph(other);
        EXPECT_EQ(other->IsExpanded(), stays) << strength;
    }
    other->SetCurrentFlag(false);
    mesh->EndUsingMorph(other);
    EXPECT_FALSE(other->IsExpanded());

    // A strength of the current morph touches no sum; one of another touches nothing else.
    Resolved(*mesh);
    mesh->UpdateMorphForOptimizedDeltas(first, 0.0f, 1.0f);
    EXPECT_EQ(mesh->GetAllDeformationsMinusCurrent().GetCount(), 0u);
    mesh->UpdateMorphForOptimizedDeltas(other, 0.0f, 0.5f);
    EXPECT_EQ(*mesh->GetAllDeformationsMinusCurrent()[7], 0.5f * Noise(1, 21));
    EXPECT_TRUE(mesh->AreOptimizedDeltasValid());
    first->MarkChanged();
    EXPECT_TRUE(mesh->AreOptimizedDeltasValid());
    other->MarkChanged();
    EXPECT_FALSE(mesh->AreOptimizedDeltasValid());

    // A new vertex count keeps the common part and the forms.
    mesh->PrepareCurrentDeltasWork();
    mesh->SetVCount(1200);
    EXPECT_FALSE(other->IsExpanded());
    EXPECT_EQ(mesh->CurrentDeltasWork.GetCount(), 1200u);
    const QLM_MorphUse use(*mesh, other, "test");
    EXPECT_EQ(other->GetVertex(999)[2], Noise(1, 2999));
    EXPECT_EQ(other->GetVertex(1199)[0], 0.0f);
    EXPECT_THROW(other->GetVertex(1200), QLM_Exception);
    int index = -1;
    float* delta = nullptr;
    EXPECT_FALSE(first->GetFirstDelta(index, delta));
    std::fill_n(first->GetVertex(4), 3, 2.0f);
    EXPECT_TRUE(first->GetFirstDelta(index, delta));
    EXPECT_EQ(index, 4);
    EXPECT_FALSE(first->GetNextDelta(index, delta));

    // Sums of deltas, and what has no array.
    first->Add(*other);
    EXPECT_EQ(first->GetVertex(4)[1], 2.0f + Noise(1, 13));
    QLM_Morph copy, shorter(mesh->GetID(), 3);
    copy.CopyFrom(*other);
    EXPECT_EQ(copy.GetVertex(999)[2], Noise(1, 2999));
    EXPECT_EQ(copy.MeshId, mesh->GetID());
    EXPECT_THROW(copy.Add(shorter), QLM_Exception);
    EXPECT_THROW(QLM_Morph().Clear(), QLM_Exception);
}

TEST(Morphs, Records) {
    MeshOwner mesh = MakePoints(500);
    AddMorph(*mesh, "smile", 0.25f, 3)->MaxStrength = 2.0f;
    auto* folder = new QLM_MorphTreeGroup(mesh->GetID());
    folder->SetNameText("folder");
    mesh->GetMorphTree()->AddChild(folder);
    mesh->CreateMorph(folder)->SetNameText("empty");
    mesh->SetCurrentMorph(mesh->FindMorph("smile"));
    const auto write = [](QLM_Mesh& m) { return WriteText([&](FILE* stream) { m.SaveMorphs(stream); }); };
    const auto read = [](QLM_Mesh& m, std::string text) {
        FILE* stream = fmemopen(text.data(), text.size(), "rb");
        const bool good = m.LoadMorphs(stream);
        std::fclose(stream);
        return good;
    };
    const auto morph = [](const std::string& lines) { return "morphs\t\n{\n\tmorph\tm\n\t{\n" + lines + "\t}\n}\n"; };
    const auto block = [](const char* name, const std::string& data) {
        return std::string("\t\t") + name + "\t\n\t\t{\n\t\t\trawDataSize\t" + std::to_string(data.size()) +
               "\n\t\t\tDATA_BEGIN\n" + data + "\nDATA_END\n\t\t}\n";
    };

    // Parked or not, the bytes are the same, and it is parked afterwards. Read and written again they are the same.
    QLM_Morph* first = mesh->FindMorph("Default Morph");
    ASSERT_FALSE(first->IsExpanded());
    first->Expand("test");
    const std::string expanded = write(*mesh);
    first->Park();
    const std::string text = write(*mesh);
    EXPECT_EQ(text, expanded);
    EXPECT_FALSE(first->IsExpanded());
    MeshOwner again = MakePoints(500);
    ASSERT_TRUE(read(*again, text));
    EXPECT_EQ(WithoutIDs(write(*again)), WithoutIDs(text));
    EXPECT_STREQ(again->GetCurrentMorph()->GetName(), "smile");
    EXPECT_FALSE(again->FindMorph("empty")->IsExpanded() || again->FindMorph("Default Morph")->IsExpanded());
    EXPECT_EQ(again->FindMorph("empty")->VertexCount, 500);
    EXPECT_EQ(again->GetCurrentMorph()->MaxStrength, 2.0f);
    EXPECT_EQ(Resolved(*again), Resolved(*mesh));

    // What came with the mesh goes when the record brings others; a record without any leaves it current.
    MeshOwner plain = MakePoints(4);
    ASSERT_TRUE(read(*plain, "morphs\t\n{\n}\n"));
    EXPECT_STREQ(plain->GetCurrentMorph()->GetName(), "Default Morph");
    ASSERT_TRUE(read(*plain, morph("\t\tvcount\t4\n\t\tStrength\t0.5\n\t\tMinStrength\tnan\n")));
    EXPECT_EQ(plain->FindMorph("Default Morph"), nullptr);
    EXPECT_EQ(plain->GetCurrentMorph(), nullptr);
    EXPECT_EQ(plain->FindMorph("m")->Strength, 0.5f);
    EXPECT_EQ(plain->FindMorph("m")->MinStrength, 0.0f);

    // The older records: sparse ones with bad indices and numbers, an empty one, dense ones; each replaces the last.
    const float numbers[] = {1, 2, 3, 4, NAN, 6, 7, 8, 9, 10, 11, 12};
    const auto bytesOf = [](const void* from, size_t n) { return std::string(static_cast<const char*>(from), n); };
    std::string sparse;
    for (const int32_t vertex : {2, 1, -1, 4}) {
        const int entry = vertex == 2 ? 0 : 1;
        sparse += bytesOf(&vertex, 4) + bytesOf(numbers + 3 * entry, 12);
    }
    const auto deltasAfter = [&](const std::string& record) {
        EXPECT_TRUE(read(*plain, record));
        QLM_Morph* m = plain->FindMorph("m");
        EXPECT_FALSE(m->IsExpanded());
        const QLM_MorphUse use(*plain, m, "test");
        return std::vector<float>(use.GetDeltas(), use.GetDeltas() + 12);
    };
    const std::string head = "\t\tvcount\t4\n\t\tCompressed\t1\n\t\tDeltaCount\t";
    EXPECT_EQ(deltasAfter(morph(head + "4\n" + block("data", sparse))),
              (std::vector<float>{0, 0, 0, 4, 0, 6, 1, 2, 3, 0, 0, 0}));
    EXPECT_EQ(deltasAfter(morph(head + "0\n" + block("data", ""))), std::vector<float>(12, 0.0f));
    const std::vector<float> dense = {1, 2, 3, 4, 0, 6, 7, 8, 9, 10, 11, 12};
    for (const char* name : {"data", "dataCompressed"})
        EXPECT_EQ(deltasAfter(morph("\t\tCompressed\t0\n\t\tvcount\t4\n" + block(name, bytesOf(numbers, 48)))), dense);
    // A morph of another length is brought to the mesh's.
    EXPECT_EQ(deltasAfter(morph("\t\tCompressed\t0\n\t\tvcount\t2\n" + block("data", bytesOf(numbers, 24)))),
              (std::vector<float>{1, 2, 3, 4, 0, 6, 0, 0, 0, 0, 0, 0}));

    // Blocks of a wrong size and counts that no file holds fail, are told, and keep what stood before them.
    const std::string bad[] = {morph(head + "3\n" + block("data", sparse)),
                               morph(head + "4\n" + block("data", sparse + "x")),
                               morph("\t\tvcount\t4\n" + block("dataCompressed", "short")),
                               morph("\t\tvcount\t2000000000\n"), morph("\t\tvcount\t-1\n")};
    for (const std::string& record : bad) {
        QLM_OS::Get().recorded.clear();
        MeshOwner victim = MakePoints(4);
        EXPECT_FALSE(read(*victim, record));
        ASSERT_EQ(QLM_OS::Get().recorded.size(), 1u);
        EXPECT_EQ(QLM_OS::Get().recorded[0].text.rfind("Error loading morph data for morph 'm'", 0), 0u);
        ASSERT_NE(victim->FindMorph("m"), nullptr);
        EXPECT_EQ(victim->FindMorph("m")->VertexCount, 4);
        Resolved(*victim);
    }
}

TEST(Morphs, OperationsOverAllObjects) {
    TestScene scene;
    const std::vector<float> positions[] = {{0, 0, 0, 2, 0, 0, 2, 1, 0, 0, 1, 4}, {5, 5, 5, 6, 5, 5, 6, 6, 5}};
    QLM_Object* objects[] = {scene.AddObject("a", positions[0], {}, {{{0, -1}, {1, -1}, {2, -1}, {3, -1}}}),
                             scene.AddObject("b", positions[1], {}, {{{0, -1}, {1, -1}, {2, -1}}})};
    QLM_Mesh& a = *objects[0]->GetMesh();
    a.Transform_Scale[0] = 3.0f; // the pivot of a transform is the raw box's middle
    const auto shape = [&] {
        const float* data = a.ResolvedVertices.GetData();
        return std::vector<float>(data, data + 12);
    };
    const auto messageIs = [](const char* text) { return QLM_OS::Get().recorded.back().text == text; };
    auto& answers = QLM_OS::Get().queuedAnswers;
    const auto highlight = [](QLM_MorphUnion* u) { Manager().GetTree()->SelectRow(u->GetID(), false, false); };

    // Both meshes share one union a name; cleaned names are unique.
    Manager().FinishAfterLoad();
    ASSERT_EQ(Manager().GetMorphUnionList().size(), 1u);
    EXPECT_EQ(Manager().GetCurrentUnion()->GetMembers().size(), 2u);
    answers = {"no", "yes", "Sm:ile", "Sm:ile"};
    EXPECT_EQ(Manager().CreateNewMorph(), nullptr);
    EXPECT_STREQ(Manager().CreateNewMorph()->GetName(), "New Morph");
    QLM_MorphUnion* smile = Manager().CreateNewMorph();
    EXPECT_TRUE(messageIs("Created the morph \"Sm_ile\""));
    QLM_MorphUnion* second = Manager().CreateNewMorph();
    EXPECT_STREQ(second->GetName(), "Sm_ile (1)");
    EXPECT_EQ(a.GetCurrentMorph(), second->FindMember(a.GetID()));

    // Percent, within the union's limits, on all members.
    smile->MaxStrength = 0.8f;
    for (const auto& [percent, strength] : {std::pair{50.0f, 0.5f}, {-20.0f, 0.0f}, {120.0f, 0.8f}}) {
        EXPECT_FLOAT_EQ(Manager().SetUnionStrength(smile, percent), strength);
        for (QLM_Morph* member : smile->GetMembers()) EXPECT_FLOAT_EQ(member->Strength, strength);
    }
    for (QLM_MorphUnion* u : {smile, second}) {
        const std::vector<float> target = {0, 0, 1, 2, 7, 0, 2, 1, 0, 0, -1, 4};
        EXPECT_EQ(Manager().SetMorphFromPositions(objects[0], u->GetName(), target.data()), u);
    }
    // z 1 x 0.8 + z 1 at vertex 0; x doesn't move.
    EXPECT_FLOAT_EQ(shape()[2], 1.8f);
    EXPECT_FLOAT_EQ(shape()[4], 7 * 1.8f);

    // Copies, a spawned morph and baked ones keep the shape.
    const float limit = 1e-6f * a.BoundsDiagonal * 4;
    const std::vector<float> before = shape();
    highlight(smile);
    EXPECT_EQ(Manager().DuplicateMorph(), 1);
    EXPECT_TRUE(messageIs("Duplicated the morph target 'Sm_ile'"));
    QLM_MorphUnion* copy = Manager().GetMorphUnionList().back();
    EXPECT_STREQ(copy->GetName(), "Sm_ile Copy");
    EXPECT_EQ(copy->GetMembers().size(), 2u);
    EXPECT_EQ(copy->FindMember(a.GetID())->Strength, 0.0f);
    EXPECT_EQ(copy->FindMember(a.GetID())->GetVertex(1)[1], 7.0f);
    QLM_MorphUnion* spawned = Manager().SpawnMorph("all");
    EXPECT_EQ(smile->Strength + second->FindMember(a.GetID())->Strength, 0.0f);
    EXPECT_LT(Deviation(shape(), before), limit);

    for (const bool clear : {false, true}) {
        highlight(spawned);
        Manager().SetUnionStrength(spawned, 100);
        const std::vector<float> unbaked = shape();
        answers = {"ok", clear ? "yes" : "no"};
        EXPECT_EQ(Manager().BakeMorphs(), 2);
        EXPECT_TRUE(messageIs("Baked the morphs into the object(s)."));
        EXPECT_LT(Deviation(shape(), unbaked), limit);
        QLM_Morph* member = spawned->FindMember(a.GetID());
        EXPECT_EQ(member->Strength, clear ? 1.0f : 0.0f);
        EXPECT_FLOAT_EQ(member->GetVertex(1)[1], clear ? 0.0f : 7 * 1.8f);
    }
    EXPECT_FLOAT_EQ(a.Vertices[1][1], 2 * 7 * 1.8f);
    EXPECT_FLOAT_EQ(a.BoundsMax[1], 2 * 7 * 1.8f);
    answers = {"no"};
    EXPECT_EQ(Manager().BakeMorphs(), 0);
    Manager().SetCurrentUnion(nullptr); // without a current morph an object is left alone
    EXPECT_EQ(Manager().BakeHighlighted(true), 0);
    EXPECT_TRUE(messageIs("No morphs were baked."));

    // Deleting asks, and leaves base plus the rest; a folder goes with what it holds.
    Manager().SetUnionStrength(smile, 50);
    Manager().SetCurrentUnion(smile);
    highlight(second);
    answers = {"no", "yes"};
    EXPECT_EQ(Manager().DeleteMorph(), 0);
    EXPECT_EQ(Manager().DeleteMorph(), 1);
    EXPECT_TRUE(messageIs("Are you sure you want to delete the selected item?"));
    EXPECT_FLOAT_EQ(shape()[4], 2 * 7 * 1.8f + 3.5f);
    EXPECT_EQ(a.FindMorph("Sm_ile (1)"), nullptr);
    highlight(smile);
    copy->SetMarked(true);
    EXPECT_EQ(Manager().DeleteHighlighted(), 2);
    EXPECT_EQ(Manager().GetCurrentUnion(), nullptr);
    EXPECT_EQ(a.GetCurrentMorph(), nullptr);
    QLM_GetEngine()->missingMorphFlag = false;
    EXPECT_FALSE(Manager().MakeCurrentMorphSymmetric(true));
    EXPECT_TRUE(QLM_GetEngine()->missingMorphFlag);
    Manager().SetCurrentUnion(spawned);
    answers = {"ok"};
    EXPECT_TRUE(Manager().MakeCurrentMorphSymmetric(false));
    EXPECT_TRUE(messageIs("Copy the left side to the right side for morph"));
}

TEST(Morphs, UnionsAreTiedAgainByName) {
    TestScene scene;
    QLM_Object* object = scene.AddObject("a", {0, 0, 0, 1, 0, 0, 0, 1, 0}, {}, {{{0, -1}, {1, -1}, {2, -1}}});
    QLM_MorphUnion* smile = Manager().CreateNewMorph("smile");
    Manager().CreateNewMorph("frown");
    Manager().SetCurrentUnion(smile);
    smile->MaxStrength = 3.0f;
    Manager().SetUnionStrength(smile, 250);
    const std::string unions = WriteTree(*Manager().GetTree());

    Manager().Clear();
    ASSERT_TRUE(ReadBlock(*Manager().GetTree(), unions));
    Manager().FinishAfterLoad();
    ASSERT_NE(Manager().GetCurrentUnion(), nullptr);
    EXPECT_STREQ(Manager().GetCurrentUnion()->GetName(), "smile");
    EXPECT_EQ(Manager().GetCurrentUnion()->Strength, 2.5f);
    QLM_Mesh& mesh = *object->GetMesh();
    EXPECT_EQ(Manager().GetCurrentUnion()->FindMember(mesh.GetID()), mesh.FindMorph("smile"));
    EXPECT_EQ(Manager().GetMorphUnionList().size(), 3u);
    EXPECT_EQ(WithoutIDs(WriteTree(*Manager().GetTree())), WithoutIDs(unions));
}

/// The statements and the report, on a file that is written here.
TEST(Morphs, Script) {
    TestScene scene;
    const std::string folder = QLM_OS::GetTempPath();
    const auto writeFile = [&](const char* name, const std::string& text) {
        FILE* file = std::fopen((folder + name).c_str(), "wb");
        std::fputs(text.c_str(), file);
        std::fclose(file);
        return folder + name;
    };
    writeFile("morph_base.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    writeFile("morph_target.obj", "v 0 0 0\nv 1 0 2\nv 0 1 0\nf 1 2 3\n");
    writeFile("morph_short.obj", "v 0 0 0\nv 1 0 2\nf 1 2 1\n");
    const std::string script = writeFile("morph_test.qscript", R"(import morph_base.obj
morph create one
morph load two morph_target.obj
fails morph load two morph_short.obj
morph strength morph_base/two 50
fails morph strength nobody 50
morph duplicate two
morph two
morph bake yes
morph delete one
report morphs
)");
    char* text = nullptr;
    size_t size = 0;
    FILE* reports = open_memstream(&text, &size);
    QLM_Engine* engine = QLM_GetEngine();
    const QLM_ScriptShell shell = {nullptr, [=] { return engine->IdlePass(); }, [=] { engine->DrawFrame(); }};
    QLM_ScriptPlayer player(shell, folder, reports);
    EXPECT_EQ(player.Play(script), 0);
    std::fclose(reports);
    const std::string report = std::regex_replace(text, std::regex(" \"hash\": \"[0-9a-f]{16}\","), "");
    std::free(text);
    const std::string object = "\", \"object\": \"morph_base\", \"strength\": ";
    const std::string parked = "\"current\": false, \"parked\": true}\n";
    EXPECT_EQ(report, "{\"morph\": \"Default Morph" + object + "1, \"deltas\": 0, " + parked + "{\"morph\": \"two" +
                          object + "0.5, \"deltas\": 0, \"current\": true, \"parked\": false}\n{\"morph\": \"two Copy" +
                          object + "0, \"deltas\": 1, " + parked);
    EXPECT_EQ(QLM_GetManagers().GetObjectManager()->GetCurrentObject()->GetMesh()->Vertices[1][2], 1.0f);
}
