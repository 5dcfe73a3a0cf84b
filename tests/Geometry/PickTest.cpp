// Rays against brute force over all triangles, and the choice of a vertex or edge.

#include "Geometry/QLM_Pick.h"
#include "Math/QLM_Matrix.h"
#include "MeshTestSupport.h"

#include <fstream>

namespace {
using Vector = std::array<double, 3>;

Vector CrossOf(const Vector& a, const Vector& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double DotOf(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

/// t of a ray in a triangle by solving origin + t d = a + u (b - a) + v (c - a); infinite for a miss.
double MeetTriangle(const QLM_Ray& ray, const Vector& a, const Vector& b, const Vector& c, bool bothSides) {
    Vector d, ab, ac, ao;
    for (int k = 0; k < 3; ++k) {
        d[k] = ray.direction[k];
        ab[k] = b[k] - a[k];
        ac[k] = c[k] - a[k];
        ao[k] = ray.origin[k] - a[k];
    }
    const Vector normal = CrossOf(ab, ac);
    const double along = -DotOf(d, normal); // above 0 for a front face
    const double miss = std::numeric_limits<double>::infinity();
    if (along == 0 || (along < 0 && !bothSides)) return miss;
    const Vector q = CrossOf(ao, d);
    const double u = DotOf(ac, q) / along, v = -DotOf(ab, q) / along, t = DotOf(ao, normal) / along;
    return u >= 0 && v >= 0 && u + v <= 1 && t >= ray.start ? t : miss;
}

Vector CornerOf(const QLM_Mesh& mesh, int p, int i) {
    const float* x = mesh.ResolvedVertices[mesh.GetPolygonVertex(p, i)];
    return {x[0], x[1], x[2]};
}

double MeetPolygon(const QLM_Mesh& mesh, int p, const QLM_Ray& ray, bool bothSides) {
    double nearest = std::numeric_limits<double>::infinity();
    for (int i = 2; i < mesh.GetPolygonVertexCount(p); ++i)
        nearest = std::min(nearest, MeetTriangle(ray, CornerOf(mesh, p, 0), CornerOf(mesh, p, i - 1),
                                                 CornerOf(mesh, p, i), bothSides));
    return nearest;
}

QLM_Ray RandomRay(QLM_RandomGenerator& random, const QLM_Mesh& mesh) {
    QLM_Ray ray;
    for (int k = 0; k < 3; ++k) {
        const double size = mesh.BoundsMax[k] - mesh.BoundsMin[k];
        const double target = mesh.BoundsMin[k] + size * RandomPart(random);
        ray.direction[k] = RandomPart(random) - 0.5;
        ray.origin[k] = target - 5.0 * ray.direction[k];
    }
    return ray;
}

/// Compares `count` random rays; returns how many met something.
int CompareWithBruteForce(QLM_Mesh& mesh, uint32_t seed, int count) {
    QLM_RandomGenerator random(seed);
    int met = 0;
    for (int i = 0; i < count; ++i) {
        const QLM_Ray ray = RandomRay(random, mesh);
        const bool bothSides = i % 2;
        double nearest = std::numeric_limits<double>::infinity();
        for (int p = 0; p < mesh.GetPCount(); ++p)
            if (!mesh.IsPolygonHidden(p)) nearest = std::min(nearest, MeetPolygon(mesh, p, ray, bothSides));
        QLM_RayHit hit;
        const bool hits = QLM_PickPolygon(mesh, ray, bothSides, hit);
        EXPECT_EQ(hits, std::isfinite(nearest)) << i;
        if (!hits || !std::isfinite(nearest)) continue;
        ++met;
        EXPECT_NEAR(hit.t, nearest, 1e-9) << i;
        // Several polygons may share a place: the one found is one of them.
        EXPECT_NEAR(MeetPolygon(mesh, hit.polygon, ray, bothSides), nearest, 1e-9) << i;
        EXPECT_FALSE(mesh.IsPolygonHidden(hit.polygon));
    }
    return met;
}

/// Positions and polygons of an OBJ of plain numbers; null when it can't be opened.
MeshOwner ReadSpot() {
    std::ifstream file(QLM_SOURCE_DIR "/../shared/data/spot/spot.obj");
    std::vector<float> vertices;
    std::vector<Corners> polygons;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "v")
            for (float x; words >> x;) vertices.push_back(x);
        if (word != "f") continue;
        polygons.emplace_back();
        while (words >> word) polygons.back().emplace_back(std::stoi(word) - 1, -1);
    }
    return polygons.empty() ? MeshOwner() : MakeMesh(vertices, {}, polygons);
}
} // namespace

TEST(Pick, RandomMeshesAgreeWithBruteForce) {
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        MeshOwner mesh = MakeRandomMesh(seed, false, 200, 300);
        EXPECT_GT(CompareWithBruteForce(*mesh, seed, 200), 100);
        // Other boxes over the same leaves, and hidden parts.
        for (int v = 0; v < 200; ++v) mesh->ResolvedVertices[v][v % 3] += 0.21f * static_cast<float>(v % 7);
        for (int p = 0; p < 300; p += 3) mesh->SetPolygonFlag(p, ePFlag_Hidden);
        mesh->InvalidateVisibleLists();
        mesh->OctreeBoundsChanged();
        CompareWithBruteForce(*mesh, seed, 100);
    }
}

TEST(Pick, RealModelAgreesWithBruteForce) {
    MeshOwner spot = ReadSpot();
    if (!spot.Get()) GTEST_SKIP() << "the model ../shared/data/spot/spot.obj is not here";
    EXPECT_GT(CompareWithBruteForce(*spot, 3, 1000), 300);
}

TEST(Pick, EdgesFacesAndTies) {
    MeshOwner cube = MakeCube();
    QLM_RayHit hit;
    // Straight down on the middle, an edge and a corner of the top, each between several faces.
    for (const auto& [x, y] : {std::pair{0.0, 0.0}, {1.0, 0.0}, {1.0, 1.0}, {0.25, 0.25}}) {
        hit = {};
        ASSERT_TRUE(QLM_PickPolygon(*cube, {{x, y, 5}, {0, 0, -2}, 0}, false, hit)) << x << y;
        EXPECT_EQ(hit.polygon, 1);
        EXPECT_EQ(hit.t, 2.0);
    }
    hit = {};
    EXPECT_FALSE(QLM_PickPolygon(*cube, {{1.0001, 0, 5}, {0, 0, -1}, 0}, true, hit));
    // From inside only back faces are met, in front of the start.
    EXPECT_FALSE(QLM_PickPolygon(*cube, {{0, 0, 0}, {0, 0, -1}, 0}, false, hit));
    ASSERT_TRUE(QLM_PickPolygon(*cube, {{0, 0, 0}, {0, 0, -1}, 0}, true, hit));
    EXPECT_EQ(hit.polygon, 0);
    // A second mesh takes over only when it is nearer.
    EXPECT_FALSE(QLM_PickPolygon(*cube, {{0, 0, 0}, {0, 0, -1}, 0}, true, hit));
    hit = {};
    EXPECT_FALSE(QLM_PickPolygon(*cube, {{0, 0, 0}, {0, 0, 0}, 0}, true, hit));
    EXPECT_TRUE(QLM_PickPolygon(*cube, {{0, 0, -9}, {0, 0, -1}, -std::numeric_limits<double>::infinity()}, false, hit));

    // Doubled polygons: the lower number.
    MeshOwner doubled = MakeMesh({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, {}, {Plain({1, 2, 3}), Plain({0, 1, 2, 3}),
                                                                           Plain({3, 0, 1, 2})});
    hit = {};
    ASSERT_TRUE(QLM_PickPolygon(*doubled, {{0.25, 0.25, 1}, {0, 0, -1}, 0}, false, hit));
    EXPECT_EQ(hit.polygon, 1);
}

TEST(Pick, NearestVertexOrEdge) {
    // A rectangle of 200 x 50 pixels in a view of 400 x 200 whose matrix is the identity.
    MeshOwner mesh = MakeMesh({-0.5f, -0.25f, 0, 0.5f, -0.25f, 0, 0.5f, 0.25f, 0, -0.5f, 0.25f, 0}, {},
                              {Plain({0, 1, 2, 3})});
    QLM_PixelView view;
    MatrixIdentity(view.modelToClip);
    view.width = 400;
    view.height = 200;
    const auto find = [&](float x, float y, bool vertex = true, bool edge = true) {
        return QLM_FindClosestVertexOrEdge(*mesh, 0, view, x, y, vertex, edge);
    };
    // 39 pixels from corner 0 along the lower edge: within 0.2 x 200; 41 pixels: the edge.
    EXPECT_EQ(find(-0.5f + 39 / 200.0f, -0.25f).vertex, 0);
    EXPECT_EQ(find(-0.5f + 39 / 200.0f, -0.25f).edge, -1);
    EXPECT_EQ(find(-0.5f + 41 / 200.0f, -0.25f).vertex, -1);
    EXPECT_EQ(find(-0.5f + 41 / 200.0f, -0.25f).edge, 0);
    // The nearest edge is the left one, 50 pixels long: its limit is 10 pixels.
    EXPECT_EQ(find(-0.495f, 0.25f - 9 / 100.0f).vertex, 3);
    const QLM_ClosestElement left = find(-0.495f, 0.25f - 11 / 100.0f);
    EXPECT_EQ(left.edge, 3);
    EXPECT_EQ(left.pointA[1], 0.25f);
    EXPECT_EQ(left.pointB[1], -0.25f);
    EXPECT_EQ(find(-0.5f, -0.25f, false).edge, 0);
    EXPECT_EQ(find(-0.31f, -0.25f, true, false).vertex, 0);
    EXPECT_EQ(find(0.0f, -0.25f, true, false).vertex, -1);
    // On a tiny polygon 4 pixels count.
    view.width = 8;
    view.height = 8;
    EXPECT_EQ(find(0.5f + 3.9f / 4, 0.25f).vertex, 2);
    EXPECT_EQ(find(0.5f + 4.1f / 4, 0.25f).vertex, -1);

    // Locked corners and their edges don't count.
    view.width = 400;
    view.height = 200;
    mesh->SetVertexFlag(0, eVFlag_Locked);
    EXPECT_EQ(find(-0.5f, -0.25f).vertex, -1);
    for (int v = 1; v < 4; ++v) mesh->SetVertexFlag(v, v == 2 ? eVFlag_Hidden : eVFlag_Locked);
    const QLM_ClosestElement none = find(0.5f, 0.25f);
    EXPECT_EQ(none.vertex, -1);
    EXPECT_EQ(none.edge, -1);
    EXPECT_EQ(none.pointB[0], -2.0f);
}
