#include "player/heard_position.h"

#include <gtest/gtest.h>

#include <string>

namespace player {
namespace {

using namespace std::chrono_literals;
using Kind = PlaybackRecord::Kind;

constexpr int kDelay = 220;
constexpr std::uint32_t kTicksPerClock = 4;

/// The clocks of a click of so many, 20 ms each, from a time and tick on.
PlaybackRecord Clock(int number, int clocksPerClick = 24, double seconds = 0.02) {
    PlaybackRecord record;
    record.tick = static_cast<std::uint32_t>(number) * kTicksPerClock;
    record.clockNumber = number % clocksPerClick;
    record.clocksPerClick = clocksPerClick;
    record.clockSeconds = seconds;
    record.time = std::chrono::nanoseconds(static_cast<long long>(number * seconds * 1e9));
    record.firstAfterStart = number == 0;
    record.displayDelayMilliseconds = kDelay;
    return record;
}

PlaybackRecord Downbeat(int number) {
    PlaybackRecord record;
    record.kind = Kind::kDownbeat;
    record.tick = static_cast<std::uint32_t>(number) * kTicksPerClock;
    return record;
}

std::string Heard(const HeardPosition& position) {
    return position.Get() ? std::to_string(position.Get()->tick / kTicksPerClock) : "nothing";
}

TEST(HeardPosition, AClickIsShownWhenItsDownbeatIsHeardAndTheClocksAfterItByTheirTime) {
    HeardPosition position;
    for (int clock = 0; clock < 60; ++clock)
        position.Take(Clock(clock));
    struct Row {
        std::chrono::milliseconds now;
        int downbeat;  // that comes before; -1: none
        const char* heard;
    };
    const Row rows[] = {
        {0ms, -1, "nothing"},
        {219ms, -1, "nothing"},
        {225ms, -1, "nothing"},
        {226ms, 0, "0"},
        {260ms, -1, "2"},
        {690ms, -1, "23"},
        {700ms, -1, "23"},
        {705ms, 24, "24"},
        {725ms, -1, "25"},
        // Before its time, and yet heard: the downbeats count.
        {1000ms, 48, "48"},
    };
    for (const Row& row : rows) {
        if (row.downbeat >= 0)
            position.Take(Downbeat(row.downbeat));
        position.Advance(row.now);
        EXPECT_EQ(Heard(position), row.heard) << row.now.count() << " ms";
    }
}

TEST(HeardPosition, ADownbeatThatNeverComesHoldsTheDisplayUpForATenthOfASecond) {
    HeardPosition position;
    for (int clock = 0; clock < 30; ++clock)
        position.Take(Clock(clock));
    position.Advance(319ms);
    EXPECT_EQ(Heard(position), "nothing");
    position.Advance(320ms);
    EXPECT_EQ(Heard(position), "5");
}

TEST(HeardPosition, ClicksShorterThanTheDelayAreShownByTheirTime) {
    HeardPosition position;
    for (int clock = 0; clock < 60; ++clock)
        position.Take(Clock(clock, 24, 0.005));
    // Late, since only one comes for each delay.
    position.Advance(220ms);
    EXPECT_EQ(Heard(position), "0");
    position.Advance(340ms);
    EXPECT_EQ(Heard(position), "24");
    position.Take(Downbeat(0));
    EXPECT_EQ(Heard(position), "24");
}

TEST(HeardPosition, ADownbeatMayComeBeforeItsClock) {
    HeardPosition position;
    position.Take(Clock(23));
    position.Take(Downbeat(24));
    position.Take(Clock(24));
    position.Advance(0ms);
    EXPECT_EQ(Heard(position), "24");
}

TEST(HeardPosition, AfterALocateNothingOfThePlaceBeforeIsShown) {
    HeardPosition position;
    for (int clock = 0; clock < 12; ++clock)
        position.Take(Clock(clock));
    position.Advance(400ms);
    EXPECT_EQ(Heard(position), "9");
    PlaybackRecord elsewhere = Clock(1000);
    elsewhere.firstAfterStart = true;
    elsewhere.time = 420ms;
    position.Take(elsewhere);
    position.Advance(430ms);
    EXPECT_EQ(Heard(position), "nothing");
    position.Advance(640ms);
    EXPECT_EQ(Heard(position), "1000");
}

TEST(HeardPosition, AtAStopWhatWasPlayedHasBeenHeardInOrder) {
    HeardPosition position;
    for (int clock = 0; clock < 3; ++clock)
        position.Take(Clock(clock));
    std::string heard;
    position.Settle([&](const PlaybackRecord& record) { heard += std::to_string(record.tick) + " "; });
    EXPECT_EQ(heard, "0 4 8 ");
    EXPECT_EQ(Heard(position), "2");
}

TEST(HeardPosition, ACountInCountsItsBarsDownAndTheirBeatsUp) {
    struct Row {
        int clocksLeft, clocksPerBar, meterUnit;
        const char* place;
    };
    const Row rows[] = {
        {192, 96, 4, "-2:1"}, {169, 96, 4, "-2:1"}, {168, 96, 4, "-2:2"}, {97, 96, 4, "-2:4"}, {96, 96, 4, "-1:1"},
        {1, 96, 4, "-1:4"},   {72, 72, 8, "-1:1"},  {60, 72, 8, "-1:2"},  {1, 72, 8, "-1:6"},
    };
    for (const Row& row : rows) {
        PlaybackRecord record;
        record.kind = Kind::kCountIn;
        record.countInClocks = row.clocksLeft;
        record.countInClocksPerBar = row.clocksPerBar;
        record.meterUnit = row.meterUnit;
        const CountInPlace place = CountInPlaceOf(record);
        EXPECT_EQ("-" + std::to_string(place.barsLeft) + ":" + std::to_string(place.beat), row.place)
            << row.clocksLeft << " clocks left";
    }
}

}  // namespace
}  // namespace player
