#include "player/show_state_tracker.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/player/offline_show.h"
#include "vemo_core/song_builder.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using Kind = PlaybackRecord::Kind;

/// In 4/4, 96 ticks a quarter.
std::shared_ptr<const Show> SomeShow(unsigned songs = 3) {
    std::vector<ImportedSong> imported;
    for (unsigned song = 0; song < songs; ++song) {
        SongBuilder builder(96);
        builder.Title(1, "Song").Track(0, "part", 0, 127, 0, {{0, 0x90, 0, 60, 90}, {48, 0x80, 0, 60, 64}}).EndAt(3840);
        imported.push_back({builder.BuildSong(), builder.BuildLog(), "Song", {}});
    }
    return ShowOf(imported);
}

class ShowStateTrackerTest : public ::testing::Test {
protected:
    void See(TransportState state, unsigned song, std::uint32_t tick = 0) {
        auto snapshot = std::make_shared<TransportSnapshot>();
        snapshot->number = ++number_;
        snapshot->show = show_;
        snapshot->state = state;
        snapshot->song = song;
        snapshot->tick = tick;
        tracker_.Take(std::move(snapshot), now_);
    }
    void Stand(unsigned song, std::uint32_t tick) {
        See(TransportState::kStopped, song, tick);
        tracker_.TakeStanding(song, tick);
    }
    void Hear(unsigned song, std::uint32_t tick, Kind kind = Kind::kClock) {
        PlaybackRecord record;
        record.kind = kind;
        record.song = song;
        record.tick = tick;
        record.bar = tick / 384 + 1;
        record.beat = tick % 384 / 96 + 1;
        record.time = now_;
        tracker_.Take(record);
    }
    /// "song@tick bar", or "none".
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
    Stand(1, 0);
    EXPECT_EQ(Place(), "1@0 1:1");
    See(TransportState::kPlaying, 1);
    Hear(1, 4);
    EXPECT_EQ(Place(), "1@0 1:1");
    Hear(1, 380);
    EXPECT_EQ(Place(), "1@0 1:1");
    Hear(1, 384);
    EXPECT_EQ(Place(), "1@384 2:1");
    Hear(1, 500);
    See(TransportState::kPlaying, 1);  // something was set
    EXPECT_EQ(Place(), "1@384 2:1");
    Stand(1, 504);
    EXPECT_EQ(Place(), "1@504 2:2");
    Hear(1, 500);  // was still on its way
    EXPECT_EQ(Place(), "1@504 2:2");
    See(TransportState::kPlaying, 1);
    Hear(1, 480, Kind::kCountIn);  // located back within the bar
    EXPECT_EQ(Place(), "1@480 2:2");
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
    Hear(1, 1152);
    EXPECT_EQ(Place(), "none");
    now_ += 1ms;
    Hear(1, 0);
    EXPECT_EQ(Place(), "1@0 1:1");
    show_ = nullptr;
    See(TransportState::kEmpty, 0);
    EXPECT_EQ(Place(), "none");
}

/// A host and a transport in small: the news of a song that has begun by itself
/// arrives late, and so do records. The thousands of a tick tell its song.
class LateShow {
public:
    explicit LateShow(std::uint32_t seed) : random_(seed), show_(SomeShow(9)) { Publish(); }

    void Step() {
        switch (random_() % 8) {
            case 0: Load(1 + random_() % 9); break;
            case 1:
                playing_ = true;
                state_ = TransportState::kPlaying;
                Publish();
                break;
            case 2:
                playing_ = false;
                state_ = TransportState::kStopped;
                Publish();
                break;
            case 3: Publish(); break;
            case 4:  // goes on by itself
                if (playing_ && hostSong_ < 9) {
                    ++hostSong_;
                    tick_ = 1000 * hostSong_;
                    news_.push_back(hostSong_);
                    Play();
                }
                break;
            case 5:
                if (!news_.empty() && std::exchange(news_.front(), 0) == hostSong_) {
                    song_ = hostSong_;
                    Publish();
                }
                if (!news_.empty())
                    news_.pop_front();
                break;
            default:
                if (playing_) {
                    tick_ = 1000 * hostSong_ + (tick_ + 4 * (1 + random_() % 60)) % 1000;
                    Play();
                }
        }
        now_ += 1ms;
    }
    /// As the keeper does, with steps between all that it reads.
    void Look(ShowStateTracker& tracker) {
        const auto records = std::exchange(records_, {});
        StepSome();
        const auto snapshot = snapshot_;
        StepSome();
        tracker.Take(snapshot, now_);
        for (const PlaybackRecord& record : records)
            tracker.Take(record);
        if (!tracker.NeedsStanding())
            return;
        const unsigned song = hostSong_;
        StepSome();
        const std::uint32_t tick = tick_;
        if (song == hostSong_)
            tracker.TakeStanding(song, tick);
    }

private:
    void StepSome() {
        while (random_() % 3 == 0)
            Step();
    }
    void Load(unsigned song) {
        playing_ = false;
        hostSong_ = song_ = song;
        tick_ = 1000 * song;
        state_ = TransportState::kStopped;
        Publish();
    }
    void Play() {
        PlaybackRecord record;
        record.song = hostSong_;
        record.tick = tick_;
        record.bar = tick_ / 384 + 1;
        record.time = now_;
        records_.push_back(record);
    }
    void Publish() {
        auto snapshot = std::make_shared<TransportSnapshot>();
        snapshot->number = ++number_;
        snapshot->show = show_;
        snapshot->state = state_;
        snapshot->song = song_;
        snapshot->tick = tick_;
        snapshot_ = std::move(snapshot);
    }

    std::mt19937 random_;
    const std::shared_ptr<const Show> show_;
    unsigned hostSong_ = 1, song_ = 1;
    std::uint32_t tick_ = 1000;
    bool playing_ = false;
    TransportState state_ = TransportState::kStopped;
    std::deque<unsigned> news_;
    std::vector<PlaybackRecord> records_;
    std::shared_ptr<const TransportSnapshot> snapshot_;
    std::uint64_t number_ = 0;
    std::chrono::nanoseconds now_ = 1s;
};

TEST(ShowStateTrackerLaw, APlaceIsNeverToldOfAnotherSongHoweverLateTheNews) {
    int told = 0;
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        LateShow show(seed);
        ShowStateTracker tracker;
        for (int look = 0; look < 400; ++look) {
            for (int steps = 0; steps < look % 4; ++steps)
                show.Step();
            show.Look(tracker);
            if (const auto state = tracker.GetState()) {
                ++told;
                ASSERT_EQ(std::to_string(state->tick / 1000), state->song) << "seed " << seed << ", look " << look;
            }
        }
    }
    EXPECT_GT(told, 60 * 400 / 4);  // and mostly there is one
}

}  // namespace
}  // namespace player
