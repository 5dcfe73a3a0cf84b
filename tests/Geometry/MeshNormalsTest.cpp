#include "MeshTestSupport.h"

namespace {
std::vector<float> Direction(const float* v) { return {v[0], v[1], v[2]}; }

void ExpectNear(const float* v, float x, float y, float z) {
    EXPECT_NEAR(v[0], x, 1e-3f);
    EXPECT_NEAR(v[1], y, 1e-3f);
    EXPECT_NEAR(v[2], z, 1e-3f);
}
} // namespace

TEST(MeshNormals, PolygonsAndVerticesOfACube) {
    MeshOwner cube = MakeCube();
    ExpectNear(cube->PolygonNormals[0], 0, 0, -1);
    ExpectNear(cube->PolygonNormals[1], 0, 0, 1);
    ExpectNear(cube->PolygonNormals[3], 0, 1, 0);
    const float third = 1.0f / std::sqrt(3.0f);
    for (int v = 0; v < 8; ++v)
        ExpectNear(cube->VertexNormals[v], v & 1 ? third : -third, v & 2 ? third : -third, v & 4 ? third : -third);
    EXPECT_EQ(Direction(cube->SavedVertexNormals[3]), Direction(cube->VertexNormals[3]));
}

namespace {
using Vector = std::array<double, 3>;

double Length(const Vector& v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }
Vector Unit(Vector v) {
    const double length = Length(v);
    for (double& x : v) x = length > 0 ? x / length : 0;
    return v;
}
void AddTo(Vector& sum, const Vector& v) {
    for (int k = 0; k < 3; ++k) sum[k] += v[k];
}
double DotOf(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

/// Newell's sum over the edges.
Vector NewellNormal(const QLM_Mesh& mesh, int p) {
    Vector sum{};
    const int count = mesh.GetPolygonVertexCount(p);
    for (int i = 0; i < count; ++i) {
        const float* a = mesh.ResolvedVertices[mesh.GetPolygonVertex(p, i)];
        const float* b = mesh.ResolvedVertices[mesh.GetPolygonVertex(p, (i + 1) % count)];
        for (int k = 0; k < 3; ++k) {
            const int x = (k + 1) % 3, y = (k + 2) % 3;
            sum[k] += (static_cast<double>(a[x]) - b[x]) * (static_cast<double>(a[y]) + b[y]);
        }
    }
    return Unit(sum);
}

/// The normal of each corner of v, by the number of its polygon in v's row.
std::vector<Vector> CornerNormals(const std::vector<Vector>& row, double degrees) {
    const double threshold = std::cos(degrees * 3.14159265358979 / 180);
    std::vector<Vector> result(row.size());
    std::vector<bool> assigned(row.size());
    for (size_t seed = 0; seed < row.size(); ++seed) {
        if (assigned[seed]) continue;
        std::vector<size_t> members;
        Vector sum{};
        for (size_t k = seed; k < row.size(); ++k)
            if (k == seed || (!assigned[k] && DotOf(row[seed], row[k]) > threshold)) {
                members.push_back(k);
                assigned[k] = true;
                AddTo(sum, row[k]);
            }
        for (const size_t k : members) result[k] = Unit(sum);
    }
    return result;
}
} // namespace

TEST(MeshNormals, RandomMeshesAgreeWithAnIndependentComputation) {
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        MeshOwner mesh = MakeRandomMesh(seed, false, 120, 200);
        QLM_RandomGenerator random(seed);
        for (int v = 0; v < 120; ++v)
            for (int k = 0; k < 3; ++k) mesh->ResolvedVertices[v][k] = RandomPart(random);
        const float degrees = 20.0f + 25.0f * static_cast<float>(seed);
        mesh->SetMaxSmoothingAngle(degrees);
        mesh->RebuildNormalIndices();
        mesh->CalculateNormals(true);
        std::vector<Vector> normals;
        for (int p = 0; p < 200; ++p) {
            normals.push_back(NewellNormal(*mesh, p));
            ExpectNear(mesh->PolygonNormals[p], static_cast<float>(normals[p][0]), static_cast<float>(normals[p][1]),
                       static_cast<float>(normals[p][2]));
        }
        int compared = 0;
        for (int v = 0; v < 120; ++v) {
            Vector sum{};
            std::vector<Vector> row;
            bool twice = false;
            for (int i = 0; i < mesh->GetVertexPolygonCount(v); ++i) {
                row.push_back(normals[mesh->GetVertexPolygon(v, i)]);
                AddTo(sum, row.back());
                twice = twice || (i > 0 && mesh->GetVertexPolygon(v, i) == mesh->GetVertexPolygon(v, i - 1));
            }
            if (Length(sum) < 0.01) continue; // cancels out but for rounding
            sum = Unit(sum);
            ExpectNear(mesh->VertexNormals[v], static_cast<float>(sum[0]), static_cast<float>(sum[1]),
                       static_cast<float>(sum[2]));
            if (twice) continue; // the corner has the normal of its last turn
            const std::vector<Vector> expected = CornerNormals(row, degrees);
            for (size_t k = 0; k < row.size(); ++k) {
                const int p = mesh->GetVertexPolygon(v, static_cast<int>(k));
                for (int i = 0; i < mesh->GetPolygonVertexCount(p); ++i) {
                    if (mesh->GetPolygonVertex(p, i) != v) continue;
                    ExpectNear(mesh->GetCornerNormal(p, i), static_cast<float>(expected[k][0]),
                               static_cast<float>(expected[k][1]), static_cast<float>(expected[k][2]));
                    ++compared;
                }
            }
        }
        EXPECT_GT(compared, 300);
    }
}

TEST(MeshNormals, SelectedVerticesAlone) {
    MeshOwner mesh = MakeCube();
    // Turn it inside out.
    for (int v = 0; v < 8; ++v) std::swap(mesh->ResolvedVertices[v][0], mesh->ResolvedVertices[v][2]);
    const std::vector<float> before = Direction(mesh->VertexNormals[6]);
    mesh->AllocateWeights();
    *mesh->VertexWeights[1] = 1.0f; // polygons 0, 2 and 5
    mesh->Invalidate();
    mesh->RecalculateNormalsForSelectedVertices();
    const float third = 1.0f / std::sqrt(3.0f);
    ExpectNear(mesh->PolygonNormals[0], 1, 0, 0);
    ExpectNear(mesh->PolygonNormals[1], 0, 0, 1); // the others are as they were
    ExpectNear(mesh->VertexNormals[1], third, third, -third);
    EXPECT_EQ(Direction(mesh->VertexNormals[6]), before);
}

TEST(MeshNormals, DegeneratePolygonsAndHugeSizes) {
    // Two corners, one corner, a doubled corner, a concave quad, and one whose squares overflow.
    MeshOwner mesh = MakeMesh({0, 0, 0, 4, 0, 0, 1, 1, 0, 0, 4, 0, 9, 9, 9, 1e20f, 0, 0, 0, 1e20f, 0}, {},
                              {Plain({0, 1}), Plain({2}), Plain({0, 0, 1}), Plain({0, 1, 2, 3}), Plain({0, 5, 6})});
    for (const int p : {0, 1, 2, 4}) EXPECT_EQ(Direction(mesh->PolygonNormals[p]), (std::vector<float>{0, 0, 0})) << p;
    ExpectNear(mesh->PolygonNormals[3], 0, 0, 1);
    ExpectNear(mesh->VertexNormals[2], 0, 0, 1);
    EXPECT_EQ(Direction(mesh->VertexNormals[4]), (std::vector<float>{0, 0, 0}));
    EXPECT_EQ(mesh->GetVertexNeighborCount(1), 3);
}

TEST(MeshNormals, HiddenPartsKeepTheirsAndBorderPolygonsCount) {
    // A strip of three quads; the last is hidden, then the whole is folded up.
    MeshOwner mesh = MakeMesh({0, 0, 0, 0, 1, 0, 1, 0, 0, 1, 1, 0, 2, 0, 0, 2, 1, 0, 3, 0, 0, 3, 1, 0}, {},
                              {Plain({0, 2, 3, 1}), Plain({2, 4, 5, 3}), Plain({4, 6, 7, 5})});
    mesh->SetPolygonFlag(2, ePFlag_Hidden);
    mesh->InvalidateVisibleLists();
    for (int v = 0; v < 8; ++v) std::swap(mesh->ResolvedVertices[v][0], mesh->ResolvedVertices[v][2]);
    mesh->CalculateNormals(true);
    ExpectNear(mesh->PolygonNormals[0], -1, 0, 0);
    ExpectNear(mesh->PolygonNormals[2], -1, 0, 0); // touches visible vertices
    ExpectNear(mesh->VertexNormals[4], -1, 0, 0);
    ExpectNear(mesh->VertexNormals[6], 0, 0, 1); // hidden
}

TEST(MeshNormals, SmoothingAngle) {
    MeshOwner cube = MakeCube();
    EXPECT_TRUE(cube->Normals.IsExternal());
    EXPECT_EQ(cube->GetCornerNormal(0, 0), cube->VertexNormals[0]);
    cube->SetMaxSmoothingAngle(250.0f);
    EXPECT_EQ(cube->GetMaxSmoothingAngle(), 180.0f);
    cube->SetMaxSmoothingAngle(179.95f);
    cube->AfterRawBuild();
    EXPECT_TRUE(cube->Normals.IsExternal());

    cube->SetMaxSmoothingAngle(-3.0f);
    EXPECT_EQ(cube->GetMaxSmoothingAngle(), 0.0f);
    cube->AfterRawBuild();
    EXPECT_FALSE(cube->Normals.IsExternal());
    EXPECT_EQ(cube->Normals.GetCount(), 24u);
    for (int v = 0; v < 8; ++v) {
        std::set<int> slots;
        for (int k = 0; k < 3; ++k) {
            const int p = cube->GetVertexPolygon(v, k);
            for (int i = 0; i < 4; ++i)
                if (cube->GetPolygonVertex(p, i) == v) {
                    slots.insert(cube->GetCornerNormalIndex(p, i));
                    EXPECT_EQ(Direction(cube->GetCornerNormal(p, i)), Direction(cube->PolygonNormals[p]));
                }
        }
        ASSERT_EQ(slots.size(), 3u);
        EXPECT_EQ(*slots.begin(), v); // the first stands in the vertex's own place
        EXPECT_EQ(*slots.rbegin(), 8 + 2 * v + 1);
    }

    // Below and above the angle between the faces; the count of vertices may change on the way.
    cube->SetMaxSmoothingAngle(89.0f);
    cube->AfterRawBuild();
    EXPECT_EQ(cube->Normals.GetCount(), 24u);
    cube->SetMaxSmoothingAngle(91.0f);
    cube->AfterRawBuild();
    EXPECT_EQ(cube->Normals.GetCount(), 8u);
    cube->SetMaxSmoothingAngle(180.0f);
    cube->AfterRawBuild();
    cube->SetVCount(5000);
    EXPECT_EQ(cube->Normals.GetCount(), 5000u);
    EXPECT_EQ(cube->Normals.GetData(), cube->VertexNormals.GetData());
}

TEST(MeshNormals, SmoothingComparesWithTheSeedOnly) {
    // Three faces around the z axis, each turned by 50 degrees against the last: 0, 50 and 100 degrees.
    std::vector<float> vertices = {0, 0, 0, 0, 0, 1};
    for (const float degrees : {0.0f, 50.0f, 100.0f, 150.0f}) {
        const float a = degrees * 3.14159265f / 180.0f;
        vertices.insert(vertices.end(), {std::cos(a), std::sin(a), 0.0f});
    }
    MeshOwner mesh(FillMesh(nullptr, vertices, {}, {Plain({0, 2, 1}), Plain({0, 3, 1}), Plain({0, 4, 1})}));
    mesh->SetMaxSmoothingAngle(60.0f);
    mesh->AfterRawBuild();
    // The first takes the second; the third is within 60 degrees of the second but not of the seed.
    EXPECT_EQ(mesh->GetCornerNormalIndex(0, 0), 0);
    EXPECT_EQ(mesh->GetCornerNormalIndex(1, 0), 0);
    EXPECT_EQ(mesh->GetCornerNormalIndex(2, 0), 6);
    EXPECT_EQ(mesh->Normals.GetCount(), 8u);
    // Face k lies in the plane at 50k degrees: its normal points to 50k - 90 degrees; the mean of two to -65.
    const float mean = -65.0f * 3.14159265f / 180.0f;
    ExpectNear(mesh->Normals[0], std::cos(mean), std::sin(mean), 0);
}

TEST(MeshNormals, ConcavityIsOffUntilAskedFor) {
    // A pyramid of four triangles whose tip points up.
    MeshOwner mesh = MakeMesh({0, 0, 1, 1, 0, 0, 0, 1, 0, -1, 0, 0, 0, -1, 0}, {},
                              {Plain({0, 1, 2}), Plain({0, 2, 3}), Plain({0, 3, 4}), Plain({0, 4, 1})});
    EXPECT_EQ(mesh->GetConcavity(0), 0.0f);
    mesh->EnableConcavity();
    // Direction from the tip to a triangle's middle (1/3, 1/3, 1/3): (1, 1, -2) / sqrt 6, against (0, 0, 1).
    EXPECT_NEAR(mesh->GetConcavity(0), -2.0f / std::sqrt(6.0f), 1e-4f);
    mesh->ResolvedVertices[0][2] = 0.0f;
    EXPECT_NEAR(mesh->GetConcavity(0), -2.0f / std::sqrt(6.0f), 1e-4f); // cached
    mesh->InvalidateAround(1);
    EXPECT_NEAR(mesh->GetConcavity(0), 0.0f, 1e-4f);
    mesh->ResetConcavity();
    EXPECT_EQ(mesh->GetConcavity(0), 0.0f);
}
