#include "Math/QLM_Random.h"

#include "Core/OS/QLM_Clock.h"
#include "Core/Objects/QLM_SpinLock.h"

#include <atomic>
#include <mutex>

namespace {

constexpr int WordCount = 55;
constexpr uint32_t WordMask = 0x3FFFFFFF;

struct SharedGenerator {
    QLM_SpinLock lock;
    QLM_RandomGenerator generator;
    bool seeded = false;
};

SharedGenerator& Shared() {
    static SharedGenerator& shared = *new SharedGenerator;
    return shared;
}

std::atomic<uint32_t> scriptSeed{0};

/// The counter, not the clock's seconds: reseeding twice within one must not repeat the sequence.
uint32_t ClockSeed() {
    const uint64_t now = QLM_Clock::RealNanoseconds();
    return static_cast<uint32_t>(QLM_Hash(&now, sizeof now));
}

} // namespace

void QLM_RandomGenerator::Seed(uint32_t seed) {
    words[0] = seed & WordMask;
    words[1] = 1;
    for (int k = 2; k < WordCount; ++k) words[k] = (words[k - 1] + words[k - 2]) & WordMask;
    i = 0;
    j = 31;
    storedSeed = seed;
}

uint32_t QLM_RandomGenerator::Next(uint32_t n) {
    if (n <= 1) return 0;
    uint64_t power = 1;
    while (power < n) power <<= 1;
    const uint32_t mask = static_cast<uint32_t>(power - 1);
    for (;;) {
        const uint32_t word = words[i] = (words[i] + words[j]) & WordMask;
        if (++i == WordCount) i = 0;
        if (++j == WordCount) j = 0;
        const uint32_t candidate = (word >> 6) & mask;
        if (candidate < n) return candidate;
    }
}

void QLM_SeedRandom(uint32_t seed) {
    SharedGenerator& shared = Shared();
    std::lock_guard guard(shared.lock);
    shared.generator.Seed(seed);
    shared.seeded = true;
}

uint32_t QLM_Random(int64_t n) {
    if (n <= 1) return 0;
    SharedGenerator& shared = Shared();
    std::lock_guard guard(shared.lock);
    if (!shared.seeded) {
        const uint32_t seed = scriptSeed;
        shared.generator.Seed(seed ? seed : ClockSeed());
        shared.seeded = true;
    }
    constexpr int64_t Most = UINT32_MAX;
    return shared.generator.Next(static_cast<uint32_t>(n < Most ? n : Most));
}

void QLM_ReseedRandomFromClock() {
    if (scriptSeed == 0) QLM_SeedRandom(ClockSeed());
}

void QLM_SetScriptSeed(uint32_t seed) {
    scriptSeed = seed;
    if (seed) QLM_SeedRandom(seed);
}

uint32_t QLM_MakeSeed(uint32_t use) {
    const uint32_t seed = scriptSeed;
    const uint32_t parts[2] = {seed ? seed : ClockSeed(), use};
    return static_cast<uint32_t>(QLM_Hash(parts, sizeof parts));
}

uint64_t QLM_Hash(const void* data, uint64_t size, uint64_t hash) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (uint64_t k = 0; k < size; ++k) hash = (hash ^ bytes[k]) * 1099511628211ull;
    return hash;
}
