// Byte tables, matrices and random numbers. The sums and sequences were worked out by a program of their own, the
// curves in sixty digits.

#include "Math/QLM_MathTables.h"
#include "Math/QLM_Matrix.h"
#include "Math/QLM_Random.h"

#include <gtest/gtest.h>

namespace {

class MathTables : public testing::Test {
  protected:
    void SetUp() override { QLM_InitializeMathLookupTables(); }
    void TearDown() override { QLM_FreeMathLookupTables(); }
};

TEST_F(MathTables, ProductsAndSquares) {
    EXPECT_EQ(T(255 * 255), 255);
    EXPECT_EQ(T(0), 0);
    EXPECT_EQ(T(254), 0);
    EXPECT_EQ(T(-254), 0);
    EXPECT_EQ(T(-255), 255) << "minus 1 modulo 256";
    EXPECT_EQ(T(-12700), 207) << "minus 49 modulo 256";
    EXPECT_EQ(T(-65025), 1);
    EXPECT_EQ(QLM_MixByte(200, 100, 127), 151) << "a mix must be able to darken";
    EXPECT_EQ(QLM_MixByte(10, 250, 255), 250);
    EXPECT_EQ(QLM_Hash(ByteProduct, 130051), 0x24eb8190746fffabull);

    EXPECT_EQ(SquareByte[16], 1);
    EXPECT_EQ(SquareByte[128], 64);
    EXPECT_EQ(QLM_Hash(SquareByte, 256), 0x3477969a4e1c3a91ull);
    EXPECT_EQ(ByteToFloat[51], 0.2f);
    EXPECT_EQ(ByteToFloat[255], 1.0f);
}

TEST_F(MathTables, MixCurve) {
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(QLM_MixCurveAt(0, i), 255);
        EXPECT_EQ(QLM_MixCurveAt(255, i), i);
        EXPECT_EQ(QLM_MixCurveAt(i, 255), 255);
    }
    EXPECT_EQ(QLM_MixCurveAt(64, 64), 127);
    EXPECT_EQ(QLM_MixCurveAt(128, 1), 5);
    EXPECT_EQ(QLM_Hash(MixCurve, 65536), 0x80858d960134a5faull);
}

TEST_F(MathTables, EdgeRampIsSmoothedInPlace) {
    EXPECT_EQ(BrushEdgeRamp[0], 0);
    EXPECT_EQ(BrushEdgeRamp[1], 5);
    EXPECT_EQ(BrushEdgeRamp[100], 253) << "the integer means lose one a pass and never get it back";
    EXPECT_EQ(BrushEdgeRamp[254], 4);
    EXPECT_EQ(BrushEdgeRamp[255], 0);
    EXPECT_EQ(QLM_Hash(BrushEdgeRamp, 256), 0x8145ee60332e7867ull);
}

TEST_F(MathTables, HardnessCurve) {
    EXPECT_TRUE(std::all_of(BrushHardnessCurve, BrushHardnessCurve + 256, [](uint8_t b) { return b == 255; }));
    SetBrushHardnessCurve(0.5f); // start 1, end 128
    EXPECT_EQ(BrushHardnessCurve[0], 0);
    EXPECT_EQ(BrushHardnessCurve[1], 0);
    EXPECT_EQ(BrushHardnessCurve[2], 2);
    EXPECT_EQ(BrushHardnessCurve[127], 252);
    EXPECT_EQ(BrushHardnessCurve[128], 255);
    SetBrushHardnessCurve(1.0f); // end 255
    EXPECT_EQ(BrushHardnessCurve[254], 253);
    EXPECT_EQ(BrushHardnessCurve[255], 255);
    SetBrushHardnessCurve(0.001f); // start and end are both 1
    EXPECT_EQ(BrushHardnessCurve[0], 0);
    EXPECT_EQ(BrushHardnessCurve[1], 255);
    SetBrushHardnessCurve(0.0f);
    EXPECT_EQ(BrushHardnessCurve[0], 255);
}

TEST_F(MathTables, ContrastCurves) {
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(ContrastCurves[i], 127);
        EXPECT_EQ(ContrastCurves[127 * 256 + i], i);
    }
    EXPECT_EQ(ContrastCurves[63 * 256 + 0], 73); // slope 32^(-1/4) = 0.4204: (0.5 - 0.2102) x 255 = 73.9
    EXPECT_EQ(ContrastCurves[255 * 256 + 127], 111); // slope 32: 127.5 - 16
    EXPECT_EQ(ContrastCurves[255 * 256 + 119], 0);
    EXPECT_EQ(ContrastCurves[255 * 256 + 136], 255);
    EXPECT_EQ(QLM_Hash(ContrastCurves, 65536), 0x2eb2c03dc9bca9f7ull);
}

TEST_F(MathTables, Bytes) {
    EXPECT_EQ(ClampByte(-1), 0);
    EXPECT_EQ(ClampByte(256), 255);
    EXPECT_EQ(QLM_FloatToByte(0.5f), 127);
    EXPECT_EQ(QLM_FloatToByte(-0.5f), 0);
}

void ExpectNear(const float* a, std::initializer_list<float> b) {
    for (const float value : b) EXPECT_NEAR(*a++, value, 1e-6f);
}

TEST(Matrix, RowVectorsTimesMatrix) {
    float turn[16], shift[16], product[16], point[3];
    const float x[3] = {1, 0, 0};
    MatrixRotation(turn, 2, 1.57079633f);
    MatrixTransformPoint(turn, x, point);
    ExpectNear(point, {0, 1, 0});
    MatrixRotation(turn, 1, 1.57079633f);
    MatrixTransformPoint(turn, x, point);
    ExpectNear(point, {0, 0, -1});

    // First the left factor acts, then the right one.
    MatrixRotation(turn, 2, 1.57079633f);
    MatrixIdentity(shift);
    MatrixTranslate(shift, 10, 20, 30);
    ExpectNear(shift + 12, {10, 20, 30, 1});
    MatrixMultiply(turn, shift, product);
    MatrixTransformPoint(product, x, point);
    ExpectNear(point, {10, 21, 30});
    MatrixTranslate(turn, 10, 20, 30); // the translation stands at the left, so it is turned
    MatrixTransformPoint(turn, x, point);
    ExpectNear(point, {-20, 11, 30});

    MatrixCopyTranspose(turn);
    EXPECT_NEAR(turn[3], -20, 1e-5f);
    EXPECT_NEAR(turn[14], 0, 1e-6f);
}

TEST(Matrix, Inverse) {
    // Rows (2 0 0) (0 0 4) (0 -5 0), moved by (1, 2, 3).
    const float m[16] = {2, 0, 0, 0, 0, 0, 4, 0, 0, -5, 0, 0, 1, 2, 3, 1};
    float inverse[16];
    ASSERT_TRUE(MatrixInvertAffine(m, inverse));
    ExpectNear(inverse, {0.5f, 0, 0, 0, 0, 0, -0.2f, 0, 0, 0.25f, 0, 0, -0.5f, -0.75f, 0.4f, 1});
    float product[16];
    MatrixMultiply(m, inverse, product);
    EXPECT_TRUE(MatrixIsIdentity(product, 1e-6f));
    product[6] = 0.01f;
    EXPECT_FALSE(MatrixIsIdentity(product, 0.001f));
    product[6] = NAN;
    EXPECT_FALSE(MatrixIsIdentity(product, 1.0f));
    const float flat[16] = {1, 0, 0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 0, 1};
    EXPECT_FALSE(MatrixInvertAffine(flat, inverse));
}

TEST(Matrix, Vectors) {
    float v[3] = {3, 0, -4}, zero[3] = {0, 0, 0}, q[4], c[3];
    Normalize(v);
    ExpectNear(v, {0.6f, 0, -0.8f});
    Normalize(zero);
    ExpectNear(zero, {0, 0, 0});
    const float x[3] = {1, 0, 0}, y[3] = {0, 1, 0};
    Cross(x, y, c);
    ExpectNear(c, {0, 0, 1});
    QuaternionFromAxis(y, 1.57079633f, q);
    ExpectNear(q, {0, 0.70710678f, 0, 0.70710678f});
}

TEST(Random, GivesTheSequenceOfItsSeed) {
    QLM_RandomGenerator generator(12345);
    const uint32_t expected[] = {23, 0, 24, 25, 18, 12, 11, 10, 22, 1, 24, 25};
    for (const uint32_t value : expected) EXPECT_EQ(generator.Next(26), value);
    uint32_t sum = 0;
    for (int k = 0; k < 1000; ++k) { // far beyond the first round of the words
        const uint32_t value = generator.Next(26);
        ASSERT_LT(value, 26u);
        sum += value;
    }
    EXPECT_EQ(sum, 12271u);

    generator.Seed(0xFFFFFFFF);
    for (const uint32_t value : {8034u, 13000u, 21035u, 34036u}) EXPECT_EQ(generator.Next(1 << 24), value);
    EXPECT_EQ(generator.GetSeed(), 0xFFFFFFFFu);
    generator.Seed(0xFFFFFFFF);
    EXPECT_EQ(generator.Next(1), 0u);
    EXPECT_EQ(generator.Next(0), 0u);
    EXPECT_EQ(generator.Next(0xFFFFFFFF), 8034u) << "a choice of one draws nothing; 24 bits are all there are";
}

TEST(Random, AScriptsSeedIsNeverOverwritten) {
    QLM_SetScriptSeed(12345);
    EXPECT_EQ(QLM_Random(26), 23u);
    QLM_ReseedRandomFromClock();
    EXPECT_EQ(QLM_Random(26), 0u);
    EXPECT_EQ(QLM_Random(-5), 0u);
    EXPECT_EQ(QLM_Random(26), 24u);
    const uint32_t seed = QLM_MakeSeed(1);
    EXPECT_EQ(QLM_MakeSeed(1), seed);
    EXPECT_NE(QLM_MakeSeed(2), seed);
    QLM_SetScriptSeed(0);
    EXPECT_NE(QLM_MakeSeed(1), QLM_MakeSeed(1)) << "without a script the counter decides";

    QLM_SeedRandom(12345);
    EXPECT_EQ(QLM_Random(26), 23u);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int k = 0; k < 1000; ++k) EXPECT_LT(QLM_Random(26), 26u);
        });
    for (std::thread& thread : threads) thread.join();
}

TEST(Hash, IsThePublishedOne) {
    EXPECT_EQ(QLM_Hash("", 0), 0xcbf29ce484222325ull);
    EXPECT_EQ(QLM_Hash("foobar", 6), 0x85944171f73967e8ull);
    EXPECT_EQ(QLM_Hash("bar", 3, QLM_Hash("foo", 3)), 0x85944171f73967e8ull);
}

} // namespace
