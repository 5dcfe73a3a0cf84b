#include "Interface/QLM_WX_InputState.h"

#include <gtest/gtest.h>

using namespace QLM::GUI;

// Smooth scrolling sends a notch of 120 in uneven parts.
TEST(WheelAccumulator, PartsMakeWholeNotches) {
    WheelAccumulator wheel;
    EXPECT_EQ(wheel.Add(50, 120), 0);
    EXPECT_EQ(wheel.Add(50, 120), 0);
    EXPECT_EQ(wheel.Add(50, 120), 1); // 150: one notch, 30 left
    EXPECT_EQ(wheel.Add(89, 120), 0); // 119
    EXPECT_EQ(wheel.Add(1, 120), 1);
    EXPECT_EQ(wheel.Add(300, 120), 2); // 60 left
    EXPECT_EQ(wheel.Add(60, 120), 1);
}

TEST(WheelAccumulator, TurningBackForgetsWhatTheOtherWayLeft) {
    WheelAccumulator wheel;
    EXPECT_EQ(wheel.Add(119, 120), 0);
    EXPECT_EQ(wheel.Add(-120, 120), -1);
    EXPECT_EQ(wheel.Add(-60, 120), 0);
    EXPECT_EQ(wheel.Add(60, 120), 0);
    EXPECT_EQ(wheel.Add(60, 120), 1);
    EXPECT_EQ(wheel.Add(120, 0), 0); // a device that names no notch
}

// One press comes as two events, and again and again while the key is held.
TEST(KeyLatch, KeyPassesOnceUntilItGoesUp) {
    KeyLatch latch;
    EXPECT_TRUE(latch.Take('V'));
    EXPECT_FALSE(latch.Take('V'));
    EXPECT_FALSE(latch.Take('V'));
    EXPECT_TRUE(latch.Take('B')); // a second key while the first is held
    EXPECT_FALSE(latch.Take('B'));
    latch.Clear();
    EXPECT_TRUE(latch.Take('B'));
}
