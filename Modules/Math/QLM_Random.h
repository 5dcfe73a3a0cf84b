#pragma once
// Additive lagged Fibonacci generator: 55 words of 30 bits.

#include <cstdint>

/// One generator of its own; each use of chance has one.
class QLM_RandomGenerator {
  public:
    explicit QLM_RandomGenerator(uint32_t seed = 1) { Seed(seed); }
    void Seed(uint32_t seed);
    uint32_t GetSeed() const { return storedSeed; }
    /// 0 .. n - 1 by masking and rejection; 0 for n <= 1. n up to 2^24 is uniform.
    uint32_t Next(uint32_t n);

  private:
    uint32_t words[55];
    int i = 0, j = 31;
    uint32_t storedSeed = 1;
};

/// The process-wide generator behind a spin lock; seeds itself on first use. Any thread.
void QLM_SeedRandom(uint32_t seed);
uint32_t QLM_Random(int64_t n);
/// The idle pass's reseeding, which a script's seed switches off.
void QLM_ReseedRandomFromClock();
/// Fixes the seed of every generator made from QLM_ScriptSeed; 0 stands for none.
void QLM_SetScriptSeed(uint32_t seed);
/// A seed for a use of its own: derived from the script's seed if there is one, else from the clock.
uint32_t QLM_MakeSeed(uint32_t use);

/// FNV-1a 64 over bytes; the hash of reports.
constexpr uint64_t QLM_HashStart = 14695981039346656037ull;
uint64_t QLM_Hash(const void* data, uint64_t size, uint64_t hash = QLM_HashStart);
