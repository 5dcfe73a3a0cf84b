#include "Geometry/QLM_WeldSearch.h"

#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"

#include <bit>
#include <cmath>

namespace {
constexpr int32_t noGroup = -1, mixedGroups = -2;
/// Wide enough that most spheres of a tolerance lie in one to four cells.
constexpr double tolerancesPerCell = 4.0;

float Distance(const float* a, const float* b) {
    const float x = a[0] - b[0], y = a[1] - b[1], z = a[2] - b[2];
    return std::sqrt(x * x + y * y + z * z);
}
} // namespace

QLM_WeldSearch::QLM_WeldSearch(const std::vector<QLM_WeldCandidate>& candidatesIn, float toleranceIn)
    : candidates(candidatesIn), tolerance(toleranceIn), cellSize(tolerancesPerCell * toleranceIn) {
    const size_t count = candidates.size();
    bucketMask = std::bit_ceil(static_cast<uint32_t>(std::max<size_t>(count, 1))) - 1;
    removed.assign(count, 0);
    places.resize(count);

    // Sort the places into buckets, ascending in each.
    std::vector<uint32_t> bucketOf(count);
    bucketStart.assign(static_cast<size_t>(bucketMask) + 2, 0);
    for (size_t i = 0; i < count; ++i) {
        int64_t cell[3];
        for (int k = 0; k < 3; ++k) cell[k] = CellOf(candidates[i].position[k]);
        bucketOf[i] = FindBucket(cell);
        ++bucketStart[bucketOf[i] + 1];
    }
    for (size_t b = 0; b <= bucketMask; ++b) bucketStart[b + 1] += bucketStart[b];
    bucketEnd.assign(bucketStart.begin(), bucketStart.end() - 1);
    for (size_t i = 0; i < count; ++i) places[bucketEnd[bucketOf[i]]++] = static_cast<int32_t>(i);
    bucketGroup.assign(static_cast<size_t>(bucketMask) + 1, mixedGroups);
}

int64_t QLM_WeldSearch::CellOf(double coordinate) const {
    // A tiny tolerance passes the range of an integer; the cells out there may as well be one.
    constexpr double limit = 4e18;
    return static_cast<int64_t>(std::clamp(std::floor(coordinate / cellSize), -limit, limit));
}

uint32_t QLM_WeldSearch::FindBucket(const int64_t* cell) const {
    uint64_t hash = 0;
    for (int k = 0; k < 3; ++k) {
        hash = (hash ^ static_cast<uint64_t>(cell[k])) * 0x9E3779B97F4A7C15ull;
        hash ^= hash >> 29;
    }
    return static_cast<uint32_t>(hash >> 20) & bucketMask;
}

const std::vector<int32_t>& QLM_WeldSearch::FindNear(int place) {
    found.clear();
    // Name the buckets of the cells that the sphere meets; two cells may share one.
    const double reach = tolerance * 1.00001; // rounding must not lose a cell
    const float* centre = candidates[place].position;
    int64_t low[3], high[3];
    for (int k = 0; k < 3; ++k) {
        low[k] = CellOf(centre[k] - reach);
        high[k] = CellOf(centre[k] + reach);
    }
    uint32_t buckets[8];
    int count = 0;
    for (int corner = 0; corner < 8; ++corner) {
        int64_t cell[3];
        bool repeated = false;
        for (int k = 0; k < 3; ++k) {
            cell[k] = corner >> k & 1 ? high[k] : low[k];
            repeated = repeated || ((corner >> k & 1) && low[k] == high[k]);
        }
        if (repeated) continue;
        const uint32_t bucket = FindBucket(cell);
        if (std::find(buckets, buckets + count, bucket) == buckets + count) buckets[count++] = bucket;
    }
    for (int i = 0; i < count; ++i) ScanBucket(buckets[i], place);
    if (count > 1) std::sort(found.begin(), found.end());
    return found;
}

void QLM_WeldSearch::ScanBucket(uint32_t bucket, int place) {
    const QLM_WeldCandidate& own = candidates[place];
    if (own.group != noGroup && bucketGroup[bucket] == own.group) return;
    int32_t kept = bucketStart[bucket];
    int32_t group = noGroup;
    for (int32_t i = kept; i < bucketEnd[bucket]; ++i) {
        const int32_t other = places[i];
        if (other <= place || removed[other]) continue;
        places[kept++] = other;
        const QLM_WeldCandidate& candidate = candidates[other];
        group = group == noGroup || group == candidate.group ? candidate.group : mixedGroups;
        if (own.group != noGroup && candidate.group == own.group) continue;
        if (candidate.key - own.key > tolerance) continue;
        if (Distance(own.position, candidate.position) < tolerance) found.push_back(other);
    }
    bucketEnd[bucket] = kept;
    bucketGroup[bucket] = group;
}

int QLM_JoinWeldCandidates(const QLM_Mesh& mesh, const std::vector<QLM_WeldCandidate>& candidates, float tolerance,
                           int32_t* map) {
    QLM_TRACE(1);
    const QLM_Polygon* polygons = mesh.GetPolygons();
    // What joined before this search stands for its target, which may have been joined since.
    const auto holds = [&](int p, int target) {
        for (int i = 0; i < polygons[p].count; ++i)
            if (map[map[polygons[p].corners[i].vertex]] == target) return true;
        return false;
    };
    QLM_WeldSearch search(candidates, tolerance);
    // A vertex without polygons is never joined. Among very many of them each search would meet all the others.
    const int candidateCount = static_cast<int>(candidates.size());
    for (int b = 0; b < candidateCount; ++b)
        if (mesh.GetVertexPolygonCount(candidates[b].vertex) == 0) search.Remove(b);
    int count = 0;
    for (int a = 0; a < candidateCount; ++a) {
        const int target = candidates[a].vertex;
        if (map[target] != target) continue;
        for (const int32_t b : search.FindNear(a)) {
            const int v = candidates[b].vertex;
            const int32_t* row = mesh.VertexPolygons.GetRow(v);
            const bool refused = std::any_of(row + 1, row + 1 + row[0], [&](int p) { return holds(p, target); });
            if (refused) continue;
            map[v] = target;
            search.Remove(b);
            ++count;
        }
    }
    for (int v = 0; v < mesh.GetVCount(); ++v) map[v] = map[map[v]];
    return count;
}
