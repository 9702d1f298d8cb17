#include "vemo_core/beat_ticks.h"

#include <gtest/gtest.h>

#include <list>
#include <random>

#include "midi/how_to_play.h"
#include "midi/user_controls.h"
#include "vemo_core/song_builder.h"

namespace {

std::list<unsigned int> BeatTicks(const SongBuilder& builder) {
    const auto song = builder.BuildSong();
    const auto log = builder.BuildLog();
    const TL::Timeline& timeline = song.GetTimeline();
    return CL::CreateBeatTicks(timeline.GetBarsBeats(), log.GetClicks(), timeline.GetMeters(),
                               timeline.GetLastTickIndex(), song.GetResolution());
}

TEST(BeatTicks, FollowTheClicksOfMeterAndLog) {
    const struct {
        const char* what;
        SongBuilder song;
        std::list<unsigned int> ticks;
    } cases[] = {
        {"a click a beat, none at the end", SongBuilder(48).EndAt(192), {0, 48, 96, 144}},
        {"6/8 in two", SongBuilder(24).Meter(0, 6, 8, 36, 8).EndAt(144), {0, 36, 72, 108}},
        {"clocks of no whole part of a beat", SongBuilder(50).EndAt(151), {0, 48, 96, 144}},
        {"half notes from beat two over the bar line",
         SongBuilder(24).Click(24, 192, 16).EndAt(192),
         {0, 24, 72, 96, 144}},
        {"a finer meter makes its clocks fewer",
         SongBuilder(24).Meter(48, 4, 4, 24, 16).Click(0, 96, 8).EndAt(96),
         {0, 24, 48, 60, 72, 84}},
    };
    for (const auto& [what, song, ticks] : cases)
        EXPECT_EQ(BeatTicks(song), ticks) << what;
}

TEST(BeatTicks, LieExactlyWhereTheTrackersClockNumberIsZero) {
    constexpr unsigned int kSeed = 20;
    std::mt19937 generator(kSeed);
    const auto number = [&](int low, int high) { return std::uniform_int_distribution(low, high)(generator); };
    constexpr int kBeatUnits[] = {1, 2, 4, 8};
    UserControls controls;
    for (int round = 0; round < 300; ++round) {
        const auto ticksPerClock = static_cast<unsigned int>(number(1, 3));
        const unsigned int end = static_cast<unsigned int>(number(1, 400)) * ticksPerClock;
        SongBuilder builder(static_cast<unsigned short>(24 * ticksPerClock));
        builder.EndAt(end);
        for (unsigned int tick = 0; tick <= end; tick += static_cast<unsigned int>(number(1, 300)) * ticksPerClock)
            builder.Meter(tick, number(1, 7), kBeatUnits[number(0, 3)], number(1, 60), number(1, 16));
        unsigned int clickEnd = 0;
        bool hasClicks = false;
        while (round % 2 == 1) {
            const unsigned int start = clickEnd + static_cast<unsigned int>(number(0, 60)) * ticksPerClock;
            clickEnd = start + static_cast<unsigned int>(number(1, 100)) * ticksPerClock;
            if (clickEnd > end)
                break;
            builder.Click(start, clickEnd, number(1, 24));
            hasClicks = true;
        }

        const auto song = builder.BuildSong();
        HowToPlay tracker(controls);
        tracker.SetData(builder.BuildLog(), song.GetTimeline(), song.GetResolution());
        std::list<unsigned int> expected;
        for (unsigned int tick = 0; tick < end; tick += ticksPerClock) {
            tracker.Seek(tick);
            if ((hasClicks ? tracker.GetClockNumberAtTickIndex(tick) : tracker.GetClockNumber()) == 0)
                expected.push_back(tick);
        }
        ASSERT_EQ(BeatTicks(builder), expected) << "seed " << kSeed << " round " << round;
    }
}

TEST(BeatTicks, AreEmptyOrBoundedForTimelinesThatNoBuilderMade) {
    using Beats = TL::TimelineSequence<TL::BarsBeats>;
    using Meters = TL::TimelineSequence<TL::Meter>;
    using Clicks = CL::ChangeLogSequence<CL::Click>;
    const Beats beats({{10, 1, 1}});
    const Meters zeros({{0, 0, 0, 0, 0}});
    EXPECT_TRUE(CL::CreateBeatTicks(Beats(), Clicks(), zeros, 100, 24).empty());
    EXPECT_TRUE(CL::CreateBeatTicks(beats, Clicks(), Meters(), 100, 24).empty());
    EXPECT_TRUE(CL::CreateBeatTicks(beats, Clicks(), zeros, 10, 24).empty());
    EXPECT_EQ(CL::CreateBeatTicks(beats, Clicks(), zeros, 13, 0), (std::list<unsigned int>{10, 11, 12}));
    EXPECT_EQ(CL::CreateBeatTicks(beats, Clicks({{0, 50, 0}}), zeros, 13, 24), (std::list<unsigned int>{10, 11, 12}));
    EXPECT_EQ(CL::CreateBeatTicks(Beats({{4294967290u, 1, 1}}), Clicks(), Meters({{0, 4, 4, 4, 8}}), 4294967295u, 24),
              (std::list<unsigned int>{4294967290u, 4294967294u}));
}

}  // namespace
