#include "Images/QLM_DeflateRuns.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <random>

namespace {

/// The bytes as zlib unpacks them; empty when it refuses, or when something lies behind the end.
std::vector<uint8_t> Inflate(std::vector<uint8_t> packed, size_t count) {
    std::vector<uint8_t> bytes(count + 1);
    z_stream stream = {};
    inflateInit2(&stream, -MAX_WBITS);
    stream.next_in = packed.data();
    stream.avail_in = uInt(packed.size());
    stream.next_out = bytes.data();
    stream.avail_out = uInt(bytes.size());
    const bool good = inflate(&stream, Z_FINISH) == Z_STREAM_END && stream.avail_in == 0;
    bytes.resize(good ? stream.total_out : 0);
    inflateEnd(&stream);
    return bytes;
}

TEST(DeflateRuns, UnpacksByTheLibrary) {
    std::mt19937 random(1);
    for (int round = 0; round < 500; round++) {
        // Noise, short and long runs, and few symbols, in one part or two that are packed each for itself.
        const size_t count = 1 + random() % (round % 50 == 0 ? 300000 : 3000);
        const size_t longest = std::array<size_t, 5>{1, 2, 4, 600, count}[size_t(round) % 5];
        std::vector<uint8_t> bytes;
        while (bytes.size() < count) {
            const uint8_t value = uint8_t(random() >> (random() % 32));
            bytes.insert(bytes.end(), std::min(1 + random() % longest, count - bytes.size()), value);
        }
        const size_t cut = random() % count;
        std::vector<uint8_t> packed;
        if (cut > 0) packed = QLM_DeflateRuns(bytes.data(), cut, false);
        const std::vector<uint8_t> rest = QLM_DeflateRuns(bytes.data() + cut, count - cut, true);
        packed.insert(packed.end(), rest.begin(), rest.end());
        ASSERT_EQ(Inflate(packed, count), bytes) << round;
    }
}

TEST(DeflateRuns, CodesStayWithinTheirLongest) {
    // Counts that grow like Fibonacci's numbers make the deepest tree; no two neighbours are equal.
    std::vector<uint8_t> bytes;
    for (int symbol = 0, a = 1, b = 1; symbol < 22; symbol++, b += a, a = b - a)
        for (int i = 0; i < a; i++) bytes.push_back(uint8_t(symbol));
    std::shuffle(bytes.begin(), bytes.end(), std::mt19937(2));
    ASSERT_LT(bytes.size(), 65536u) << "one block";
    EXPECT_EQ(Inflate(QLM_DeflateRuns(bytes.data(), bytes.size(), true), bytes.size()), bytes);
}

} // namespace
