#include "Geometry/QLM_MorphSums.h"

#include <cstring>

namespace {
typedef float Lanes __attribute__((vector_size(16)));
constexpr int64_t laneCount = 4;

template <class Value> Value Load(const float* from) {
    Value value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// Calls body(i, width) with the type to work in: four floats at a time, then the last ones singly.
template <class Body> void ForLanes(int64_t start, int64_t end, Body body) {
    int64_t i = start;
    for (; i + laneCount <= end; i += laneCount) body(i, Lanes{});
    for (; i < end; ++i) body(i, 0.0f);
}

template <int Count> void AddTerms(float* sum, bool fresh, const QLM_MorphTerms& terms, int64_t start, int64_t end) {
    ForLanes(start, end, [&](int64_t i, auto total) {
        if (!fresh) total = Load<decltype(total)>(sum + i);
        for (int m = 0; m < Count; ++m) total += terms.strengths[m] * Load<decltype(total)>(terms.deltas[m] + i);
        std::memcpy(sum + i, &total, sizeof total);
    });
}

/// a + b as a float, and what that rounds away.
template <class Value> Value AddExactly(Value a, Value b, Value& error) {
    const Value total = a + b, part = total - a;
    error = (a - (total - part)) + (b - part);
    return total;
}
} // namespace

void QLM_AddMorphTerms(float* sum, bool fresh, const QLM_MorphTerms& terms, int64_t start, int64_t end) {
    constexpr decltype(&AddTerms<1>) byCount[QLM_MorphTerms::most] = {AddTerms<1>, AddTerms<2>, AddTerms<3>,
                                                                      AddTerms<4>};
    byCount[terms.count - 1](sum, fresh, terms, start, end);
}

void QLM_ChangeMorphSum(float* sum, float* remainder, const float* deltas, float removed, float added, int64_t start,
                        int64_t end) {
    ForLanes(start, end, [=](int64_t i, auto zero) {
        using Value = decltype(zero);
        const Value delta = Load<Value>(deltas + i);
        Value lostFirst, lostSecond, rest;
        Value total = AddExactly<Value>(Load<Value>(sum + i), -(removed * delta), lostFirst);
        total = AddExactly<Value>(total, added * delta, lostSecond);
        total = AddExactly<Value>(total, Load<Value>(remainder + i) + (lostFirst + lostSecond), rest);
        std::memcpy(sum + i, &total, sizeof total);
        std::memcpy(remainder + i, &rest, sizeof rest);
    });
}
