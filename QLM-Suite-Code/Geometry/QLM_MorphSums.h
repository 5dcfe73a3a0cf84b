#pragma once
// Sums of deltas over arrays of floats, four at a time. Private to this room. Any thread, own ranges.

#include <cstdint>

/// Morphs of one pass over a sum.
struct QLM_MorphTerms {
    static constexpr int most = 4;
    const float* deltas[most];
    float strengths[most];
    int count = 0;
};

/// sum[i] += strength x delta[i] for one morph (1 to 4) after the other, for i of start..end-1; with `fresh` the sum
/// starts at 0, whatever stands there.
void QLM_AddMorphTerms(float* sum, bool fresh, const QLM_MorphTerms& terms, int64_t start, int64_t end);
/// sum[i] -= removed x delta[i], then sum[i] += added x delta[i], where remainder[i] carries what rounding loses: the
/// pair stays true to about twice the digits of a float however often it is changed. (D. E. Knuth, The Art of Computer
/// Programming 2, 4.2.2: the error of a sum.)
void QLM_ChangeMorphSum(float* sum, float* remainder, const float* deltas, float removed, float added, int64_t start,
                        int64_t end);
