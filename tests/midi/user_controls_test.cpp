#include "midi/user_controls.h"

#include <gtest/gtest.h>

namespace {

TEST(UserControls, TempoStepsMultiplyAndAnyScaleIsKept) {
    UserControls controls;
    EXPECT_EQ(controls.GetTempoScale(), 1.0);
    EXPECT_DOUBLE_EQ(controls.IncreaseTempo(), 1.01);
    EXPECT_DOUBLE_EQ(controls.IncreaseTempo(), 1.0201);
    EXPECT_DOUBLE_EQ(controls.GetTempoScale(), 1.0201);
    controls.SetTempoScale(1.0);
    EXPECT_DOUBLE_EQ(controls.DecreaseTempo(), 0.99);
    controls.SetTempoScale(3.0);
    EXPECT_EQ(controls.GetTempoScale(), 3.0);
}

TEST(UserControls, OneReaderSeesThatTheTranspositionBecameAnother) {
    UserControls controls;
    controls.SetTransposition(0);
    EXPECT_FALSE(controls.GetTranspositionChanged());
    controls.SetTransposition(2);
    controls.SetTransposition(2);
    EXPECT_EQ(controls.GetTransposition(), 2);
    EXPECT_TRUE(controls.GetTranspositionChanged());
    EXPECT_FALSE(controls.GetTranspositionChanged());
}

}  // namespace
