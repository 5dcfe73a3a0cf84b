#include "Images/QLM_ImageLoader.h"

#include "Core/Threads/QLM_ThreadCruncher.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<uint8_t>;

TEST(ImageResize, BilinearMixesByTheUncentredMapping) {
    // Columns at 0, 0.5, 1 and 1.5, the last one clamped to the last column; 127.5 is truncated.
    const Bytes source = {0, 255};
    Bytes result(4);
    ASSERT_TRUE(ResizeImage(result.data(), 4, 1, source.data(), 2, 1, 1));
    EXPECT_EQ(result, (Bytes{0, 127, 255, 255}));

    // Rows at 0 and 1 of two rows, columns at 0, 2/3 and 4/3 of two: (200 - 20) 2/3 + 20 = 140.
    const Bytes rgb = {20, 0, 90, 200, 0, 30, 100, 10, 90, 100, 40, 90};
    Bytes wider(18);
    ASSERT_TRUE(ResizeImage(wider.data(), 3, 2, rgb.data(), 2, 2, 3));
    EXPECT_NEAR(wider[3], 140, 1);
    EXPECT_NEAR(wider[5], 50, 1);
    EXPECT_EQ(wider[9], 100);
    EXPECT_NEAR(wider[13], 30, 1);
    EXPECT_EQ(wider[16], 40);
}

TEST(ImageResize, EqualPixelsStayWhatTheyAre) {
    for (const int value : {1, 127, 128, 254, 255}) {
        const Bytes source(61 * 47 * 4, uint8_t(value));
        Bytes result(333 * 271 * 4);
        ASSERT_TRUE(ResizeImage(result.data(), 333, 271, source.data(), 61, 47, 4));
        EXPECT_EQ(result, Bytes(result.size(), uint8_t(value)));
    }
}

TEST(ImageResize, NearestCopiesWholePixels) {
    // Columns x * 5 / 3 = 0, 1, 3; rows y * 2 / 3 = 0, 0, 1.
    const Bytes source = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    const Bytes expected = {1, 2, 4, 1, 2, 4, 6, 7, 9};
    Bytes result(9);
    ASSERT_TRUE(ResizeImageClosest(result.data(), 3, 3, source.data(), 5, 2, 1));
    EXPECT_EQ(result, expected);
    ASSERT_TRUE(ResizeImageClosestF(result.data(), 3, 3, source.data(), 5, 2, 1));
    EXPECT_EQ(result, expected);

    const Bytes rgb = {1, 2, 3, 4, 5, 6};
    Bytes wide(12);
    ASSERT_TRUE(ResizeImageClosest(wide.data(), 4, 1, rgb.data(), 2, 1, 3));
    EXPECT_EQ(wide, (Bytes{1, 2, 3, 1, 2, 3, 4, 5, 6, 4, 5, 6}));
}

TEST(ImageResize, RefusesOtherDepths) {
    const Bytes source(8, 9);
    Bytes result(8, 5);
    EXPECT_FALSE(ResizeImage(result.data(), 2, 2, source.data(), 2, 2, 2));
    EXPECT_FALSE(ResizeImageClosest(result.data(), 2, 2, source.data(), 2, 2, 0));
    EXPECT_FALSE(ResizeImageClosestF(result.data(), 2, 2, source.data(), 2, 2, 5));
    EXPECT_EQ(result, Bytes(8, 5));
}

TEST(ImageResize, ThreadsAndCallsFromAWorkerGiveTheSame) {
    Bytes source(300 * 200 * 3);
    for (size_t i = 0; i < source.size(); i++) source[i] = uint8_t(i * 2654435761u >> 13);
    Bytes threaded(700 * 650 * 3), nested(threaded.size());
    ASSERT_TRUE(ResizeImage(threaded.data(), 700, 650, source.data(), 300, 200, 3));
    QLM_ThreadCrunch(
        1, [&](const ThreadCrunchRange&) { ResizeImage(nested.data(), 700, 650, source.data(), 300, 200, 3); },
        "ResizeTest");
    EXPECT_EQ(threaded, nested);
}

} // namespace
