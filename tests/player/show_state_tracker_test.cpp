#include "player/show_state_tracker.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/player/offline_show.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using Kind = PlaybackRecord::Kind;

std::shared_ptr<const Show> SomeShow() {
    return ShowOf(std::vector<ImportedSong>(3, SongOfBeats("Song", 40)));
}

class ShowStateTrackerTest : public ::testing::Test {
protected:
    std::string See(TransportState state, unsigned song, std::uint32_t tick = 0) {
        auto snapshot = std::make_shared<TransportSnapshot>();
        snapshot->number = ++number_;
        snapshot->show = show_;
        snapshot->state = state;
        snapshot->song = song;
        snapshot->tick = tick;
        tracker_.Take(std::move(snapshot), now_);
        return Place();
    }
    std::string Stand(unsigned song, std::uint32_t tick) {
        See(TransportState::kStopped, song, tick);
        tracker_.TakeStanding(song, tick);
        return Place();
    }
    std::string Hear(unsigned song, std::uint32_t tick, Kind kind = Kind::kClock) {
        PlaybackRecord record;
        record.kind = kind;
        record.song = song;
        record.tick = tick;
        record.bar = tick / 384 + 1;
        record.beat = tick % 384 / 96 + 1;
        record.time = now_;
        tracker_.Take(record);
        return Place();
    }
    /// What See(), Stand() and Hear() return: "song@tick bar", or "none".
    std::string Place() const {
        const auto state = tracker_.GetState();
        return state ? state->song + "@" + std::to_string(state->tick) + " " + state->bar : "none";
    }

    std::shared_ptr<const Show> show_ = SomeShow();
    std::chrono::nanoseconds now_ = 1s;
    std::uint64_t number_ = 0;
    ShowStateTracker tracker_;
};

TEST_F(ShowStateTrackerTest, FollowsThePlayingByBarsAndStandsByTicks) {
    EXPECT_EQ(Place(), "none");
    EXPECT_EQ(Stand(1, 0), "1@0 1:1");
    See(TransportState::kPlaying, 1);
    EXPECT_EQ(Hear(1, 4), "1@0 1:1");
    EXPECT_EQ(Hear(1, 380), "1@0 1:1");
    EXPECT_EQ(Hear(1, 384), "1@384 2:1");
    Hear(1, 500);
    EXPECT_EQ(See(TransportState::kPlaying, 1), "1@384 2:1");  // something was set
    EXPECT_EQ(Stand(1, 504), "1@504 2:2");
    EXPECT_EQ(Hear(1, 500), "1@504 2:2");  // was still on its way
    See(TransportState::kPlaying, 1);
    EXPECT_EQ(Hear(1, 480, Kind::kCountIn), "1@480 2:2");  // located back within the bar
    EXPECT_TRUE(tracker_.HasPlayed());
}

TEST_F(ShowStateTrackerTest, WhatAnotherShowPlayedIsNoPlaceOfThisOne) {
    Stand(1, 0);
    See(TransportState::kPlaying, 1);
    Hear(1, 768);
    now_ += 1s;
    show_ = SomeShow();
    See(TransportState::kPlaying, 1);
    now_ -= 1ms;
    EXPECT_EQ(Hear(1, 1152), "none");
    now_ += 1ms;
    EXPECT_EQ(Hear(1, 0), "1@0 1:1");
    show_ = nullptr;
    EXPECT_EQ(See(TransportState::kEmpty, 0), "none");
}

TEST_F(ShowStateTrackerTest, APlaceIsNeverToldOfAnotherSongHoweverLateTheNews) {
    Stand(1, 0);
    See(TransportState::kPlaying, 1);
    Hear(1, 384);
    // The records are ahead of the snapshots.
    Hear(2, 12);
    EXPECT_EQ(Hear(2, 400), "1@384 2:1");
    EXPECT_EQ(See(TransportState::kPlaying, 2), "2@12 1:1");
    // Of which one never tells: the operator chose another song meanwhile.
    Hear(3, 24);
    EXPECT_EQ(See(TransportState::kPlaying, 1), "none");
    Hear(1, 768);
    EXPECT_EQ(See(TransportState::kPlaying, 3), "none") << "that song was left again";
    EXPECT_EQ(Hear(1, 1152), "none") << "behind the snapshots";
    EXPECT_EQ(Hear(3, 48), "3@48 1:1");
    Hear(1, 12);
    Hear(2, 12);
    EXPECT_EQ(See(TransportState::kPlaying, 1), "none") << "two songs ahead";
    EXPECT_EQ(See(TransportState::kPlaying, 2), "2@12 1:1");
    // The host stands elsewhere than the snapshot says.
    See(TransportState::kStopped, 2, 1152);
    for (const auto& [song, tick] : {std::pair(3u, 1152u), {2u, 12u}}) {
        tracker_.TakeStanding(song, tick);
        EXPECT_TRUE(tracker_.NeedsStanding());
        EXPECT_EQ(Place(), "none");
    }
    tracker_.TakeStanding(2, 1152);
    EXPECT_EQ(Place(), "2@1152 4:1");
}

}  // namespace
}  // namespace player
