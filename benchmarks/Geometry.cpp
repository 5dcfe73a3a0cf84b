// What a mesh of a million quads costs to derive, weld and pick, beside a plain loop of one thread that reads
// and writes the same arrays.

#include "Scene.h"

#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_Pick.h"
#include "Math/QLM_Random.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <map>
#include <string>

namespace {

constexpr int side = 1000; ///< quads in a row and in a column

/// The wavy grid in `strips` strips that only share places, its quads spread over `groups` groups by rows.
QLM_Object* BuildGrid(int groups, int strips) {
    auto* object = new QLM_Object;
    auto* mesh = new QLM_Mesh(object);
    object->SetMesh(mesh);
    const int rowsOfStrip = side / strips, row = side + 1;
    const auto pointRow = [&](int y, int strip) { return y + strip; }; // each strip has its own last row
    mesh->SetSizes(row * (side + strips), row * (side + strips), side * side);
    for (int g = 0; g < groups; ++g) {
        auto* group = new QLM_Group2;
        group->SetNameText("part" + std::to_string(g));
        mesh->AddGroup(group);
    }
    for (int strip = 0; strip < strips; ++strip)
        for (int y = strip * rowsOfStrip; y <= (strip + 1) * rowsOfStrip; ++y)
            for (int x = 0; x < row; ++x) {
                const float u = static_cast<float>(x) / side, v = static_cast<float>(y) / side;
                const int i = pointRow(y, strip) * row + x;
                const float p[3] = {2 * u - 1, 2 * v - 1, 0.1f * std::sin(20 * u) * std::cos(17 * v)};
                std::copy_n(p, 3, mesh->Vertices[i]);
                mesh->TextureVertices[i][0] = u;
                mesh->TextureVertices[i][1] = v;
            }
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const int p = y * side + x, a = pointRow(y, y / rowsOfStrip) * row + x;
            const int corners[4] = {a, a + 1, a + row + 1, a + row};
            mesh->SetPolygonCornerCount(p, 4);
            mesh->SetPolygonGroup(p, y * groups / side);
            for (int i = 0; i < 4; ++i) {
                mesh->SetPolygonVertex(p, i, corners[i]);
                mesh->SetPolygonTextureVertex(p, i, corners[i]);
            }
        }
    mesh->AfterRawBuild();
    return object;
}

/// The whole grid with that many groups, built once.
QLM_Mesh* Grid(int groups) {
    static std::map<int, QLM_Object*> grids;
    QLM_Object*& object = grids[groups];
    if (!object) object = BuildGrid(groups, 1);
    return object->GetMesh();
}

/// Times each turn of `run`; tells the shortest, as the machine is shared.
template <class Run> void Measure(benchmark::State& state, Run run) {
    double shortest = 1e9;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        run();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        shortest = std::min(shortest, seconds);
        state.SetIterationTime(seconds);
    }
    state.counters["min_ms"] = shortest * 1000;
}

#define MEASURE(function) BENCHMARK(function)->UseManualTime()->Unit(benchmark::kMillisecond)

// What follows from the raw arrays.

void GeometryAfterRawBuild(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(static_cast<int>(state.range(0)));
    Measure(state, [&] { mesh->AfterRawBuild(); });
    state.counters["groups"] = mesh->GetGroupCount();
}
MEASURE(GeometryAfterRawBuild)->Arg(1)->Arg(172)->Iterations(5);

/// Writes the tables of polygons, neighbours and edges of each vertex in the simplest way that a grid allows.
void GeometryAfterRawBuildPlain(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(1);
    const int vertices = mesh->GetVCount(), polygons = mesh->GetPCount();
    std::vector<int32_t> ofVertex(5 * static_cast<size_t>(vertices)), neighbors(9 * static_cast<size_t>(vertices));
    std::vector<QLM_EdgeRecord> edges(2 * static_cast<size_t>(vertices));
    std::vector<float> resolved(3 * static_cast<size_t>(vertices));
    Measure(state, [&] {
        std::copy_n(mesh->Vertices.GetData(), resolved.size(), resolved.data());
        for (int v = 0; v < vertices; ++v) ofVertex[5 * static_cast<size_t>(v)] = 0;
        for (int p = 0; p < polygons; ++p)
            for (int i = 0; i < 4; ++i) {
                int32_t* row = &ofVertex[5 * static_cast<size_t>(mesh->GetPolygon(p).corners[i].vertex)];
                row[++row[0]] = p;
            }
        for (int v = 0; v < vertices; ++v) {
            const int32_t* row = &ofVertex[5 * static_cast<size_t>(v)];
            int32_t* out = &neighbors[9 * static_cast<size_t>(v)];
            int count = 0, edge = 0;
            for (int k = 1; k <= row[0]; ++k)
                for (int i = 0; i < 4; ++i) {
                    const int other = mesh->GetPolygon(row[k]).corners[i].vertex;
                    if (other == v || std::find(out + 1, out + 1 + count, other) != out + 1 + count) continue;
                    out[++count] = other;
                    if (other > v && edge < 2)
                        edges[2 * static_cast<size_t>(v) + edge++] = {v, other, v, other, v, other, row[k], -1};
                }
            out[0] = count;
        }
        benchmark::DoNotOptimize(edges.data());
    });
}
MEASURE(GeometryAfterRawBuildPlain)->Iterations(5);

void GeometryNormals(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(static_cast<int>(state.range(0)));
    mesh->SetMaxSmoothingAngle(static_cast<float>(state.range(1)));
    mesh->RebuildNormalIndices();
    Measure(state, [&] { mesh->CalculateNormals(true); });
    mesh->SetMaxSmoothingAngle(180);
    mesh->RebuildNormalIndices();
}
MEASURE(GeometryNormals)->Args({1, 180})->Args({172, 180})->Args({1, 30})->Iterations(20);

void GeometryNormalsPlain(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(1);
    const QLM_VertexMap3D& points = mesh->ResolvedVertices;
    const auto unit = [](float* n) {
        const float length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (int k = 0; k < 3; ++k) n[k] = length > 0 ? n[k] / length : 0;
    };
    std::vector<float> polygonNormals(3 * static_cast<size_t>(mesh->GetPCount()));
    std::vector<float> vertexNormals(3 * static_cast<size_t>(mesh->GetVCount()));
    Measure(state, [&] {
        for (int p = 0; p < mesh->GetPCount(); ++p) {
            const QLM_PolygonCorner* c = mesh->GetPolygon(p).corners;
            const float *a = points[c[0].vertex], *b = points[c[1].vertex];
            const float *d = points[c[2].vertex], *e = points[c[3].vertex];
            float* n = &polygonNormals[3 * static_cast<size_t>(p)];
            for (int k = 0; k < 3; ++k) { // the product of the diagonals
                const int x = (k + 1) % 3, y = (k + 2) % 3;
                n[k] = (d[x] - a[x]) * (e[y] - b[y]) - (d[y] - a[y]) * (e[x] - b[x]);
            }
            unit(n);
        }
        for (int v = 0; v < mesh->GetVCount(); ++v) {
            const int32_t* row = mesh->VertexPolygons.GetRow(v);
            float* n = &vertexNormals[3 * static_cast<size_t>(v)];
            n[0] = n[1] = n[2] = 0;
            for (int i = 1; i <= row[0]; ++i)
                for (int k = 0; k < 3; ++k) n[k] += polygonNormals[3 * static_cast<size_t>(row[i]) + k];
            unit(n);
        }
        benchmark::DoNotOptimize(vertexNormals.data());
    });
}
MEASURE(GeometryNormalsPlain)->Iterations(20);

void GeometryOctreeBuild(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(static_cast<int>(state.range(0)));
    Measure(state, [&] { mesh->BuildOctree(); });
    state.counters["leaves"] = static_cast<double>(mesh->GetLeaves().size());
}
MEASURE(GeometryOctreeBuild)->Arg(1)->Arg(172)->Iterations(10);

/// Counts the vertices and polygons of each cell of a grid and lists them by cell.
void GeometryOctreeBuildPlain(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(1);
    const auto cellOf = [&](int v) {
        int cell = 0;
        for (int k = 0; k < 3; ++k) {
            const float part = (mesh->Vertices[v][k] - mesh->BoundsMin[k]) / (mesh->BoundsMax[k] - mesh->BoundsMin[k]);
            cell = cell * 16 + std::min(15, static_cast<int>(part * 16));
        }
        return cell;
    };
    std::vector<int32_t> cells(mesh->GetVCount()), vertices(mesh->GetVCount()), polygons(mesh->GetPCount());
    Measure(state, [&] {
        std::vector<int32_t> starts(4097), polygonStarts(4097);
        for (int v = 0; v < mesh->GetVCount(); ++v) ++starts[(cells[v] = cellOf(v)) + 1];
        for (int p = 0; p < mesh->GetPCount(); ++p) ++polygonStarts[cells[mesh->GetPolygon(p).corners[0].vertex] + 1];
        for (int i = 0; i < 4096; ++i) {
            starts[i + 1] += starts[i];
            polygonStarts[i + 1] += polygonStarts[i];
        }
        for (int v = 0; v < mesh->GetVCount(); ++v) vertices[starts[cells[v]]++] = v;
        for (int p = 0; p < mesh->GetPCount(); ++p)
            polygons[polygonStarts[cells[mesh->GetPolygon(p).corners[0].vertex]]++] = p;
        benchmark::DoNotOptimize(polygons.data());
    });
}
MEASURE(GeometryOctreeBuildPlain)->Iterations(10);

// Picks.

QLM_Ray RandomRay(QLM_RandomGenerator& random) {
    const auto part = [&] { return static_cast<double>(random.Next(1000001)) / 1000000 - 0.5; };
    QLM_Ray ray;
    for (int k = 0; k < 2; ++k) {
        ray.direction[k] = part();
        ray.origin[k] = 2 * part() - 3 * ray.direction[k];
    }
    ray.origin[2] = 3;
    ray.direction[2] = -1;
    return ray;
}

void GeometryPick(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(1);
    mesh->GetRoot();
    QLM_RandomGenerator random(1);
    double hits = 0, longest = 0;
    Measure(state, [&] {
        const auto start = std::chrono::steady_clock::now();
        QLM_RayHit hit;
        hits += QLM_PickPolygon(*mesh, RandomRay(random), false, hit);
        longest = std::max(longest, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    });
    state.counters["hits"] = hits;
    state.counters["max_ms"] = longest * 1000;
}
MEASURE(GeometryPick)->Iterations(2000);

/// The same ray against the points of all polygons.
void GeometryPickPlain(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(1);
    QLM_RandomGenerator random(1);
    Measure(state, [&] {
        const QLM_Ray ray = RandomRay(random);
        int found = -1;
        for (int p = 0; p < mesh->GetPCount(); ++p) {
            bool left = true, right = true;
            for (int i = 0; i < 4; ++i) {
                const float* point = mesh->ResolvedVertices[mesh->GetPolygon(p).corners[i].vertex];
                const double t = point[2] - ray.origin[2], x = point[0] - ray.origin[0] + ray.direction[0] * t;
                left = left && x < 0;
                right = right && x > 0;
            }
            if (!left && !right) found = p;
        }
        benchmark::DoNotOptimize(found);
    });
}
MEASURE(GeometryPickPlain)->Iterations(10);

// Welding: fifty strips have a hundred thousand vertices at open edges.

void GeometryWeld(benchmark::State& state) {
    QLM_Object* object = BuildGrid(1, 50);
    QLM_Mesh* mesh = object->GetMesh();
    int open = 0, joined = 0;
    for (int v = 0; v < mesh->GetVCount(); ++v) open += mesh->HasVertexFlag(v, eVFlag_OpenEdge);
    // The search and the build that follows, then the build alone.
    double shortest = 1e9, build = 1e9;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        joined = mesh->Weld(1e-4f, true, false, false);
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        shortest = std::min(shortest, seconds);
        start = std::chrono::steady_clock::now();
        mesh->AfterRawBuild();
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        build = std::min(build, seconds);
        mesh->Unweld();
    }
    state.counters["min_ms"] = shortest * 1000;
    state.counters["build_ms"] = build * 1000;
    state.counters["open_vertices"] = open;
    state.counters["joined"] = joined;
    delete object;
}
MEASURE(GeometryWeld)->Iterations(5);

void GeometryWeldPlain(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(1);
    std::vector<std::pair<float, int>> keys(100000);
    Measure(state, [&] {
        for (int i = 0; i < 100000; ++i) {
            const float* p = mesh->Vertices[10 * i];
            keys[i] = {p[0] * p[0] + p[1] * p[1] + p[2] * p[2], i};
        }
        std::sort(keys.begin(), keys.end());
        benchmark::DoNotOptimize(keys.data());
    });
    state.SetLabel("sorting alone");
}
MEASURE(GeometryWeldPlain)->Iterations(10);

/// Bytes a quad of each array that every mesh has; of features that nobody uses there are none.
void GeometryMemory(benchmark::State& state) {
    QLM_Mesh* mesh = Grid(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(mesh);
    const double quads = mesh->GetPCount(), vertices = mesh->GetVCount();
    double octree = 4.0 * (quads + mesh->GetVisiblePolygonCount() + mesh->GetVisibleVertexCount());
    octree += static_cast<double>(mesh->GetLeaves().size() * sizeof(QLM_OctreeMeshContainer::Node));
    double groups = 0;
    for (int g = 0; g < mesh->GetGroupCount(); ++g)
        groups += 4.125 * static_cast<double>(mesh->GetGroup(g)->Vertices.size());
    const uint32_t cornerNormals = mesh->Normals.IsExternal() ? 0 : mesh->Normals.GetCount();
    const std::pair<const char*, double> parts[] = {
        {"vertices", 12.0 * (mesh->Vertices.GetCount() + mesh->ResolvedVertices.GetCount())},
        {"texture_vertices", 8.0 * mesh->TextureVertices.GetCount()},
        {"polygons", (16.0 + 4 * sizeof(QLM_PolygonCorner)) * quads},
        {"normals", 12.0 * (mesh->VertexNormals.GetCount() + mesh->PolygonNormals.GetCount() +
                            mesh->SavedVertexNormals.GetCount() + cornerNormals)},
        {"flags", 4.0 * (vertices + quads + mesh->GetVTCount()) + vertices},
        {"vertex_polygons", static_cast<double>(mesh->VertexPolygons.GetByteCount())},
        {"vertex_neighbors", static_cast<double>(mesh->VertexNeighbors.GetByteCount())},
        {"edges", static_cast<double>(mesh->GetEdgeByteCount())},
        {"octree", octree},
        {"groups", groups},
        {"selection", 4.0 * (mesh->VertexWeights.GetCount() + mesh->PolygonWeights.GetCount())},
        {"weld_map", mesh->IsWelded() ? 4.0 * vertices : 0.0},
    };
    double total = 0;
    for (const auto& [name, bytes] : parts) {
        state.counters[name] = bytes / quads;
        total += bytes / quads;
    }
    state.counters["total_bytes_a_quad"] = total;
}
BENCHMARK(GeometryMemory)->Arg(1)->Arg(172)->Iterations(1);

} // namespace
