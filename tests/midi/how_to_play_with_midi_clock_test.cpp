#include "midi/how_to_play_with_midi_clock.h"

#include <gmock/gmock.h>

#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "midi/standard_midi_clock.h"
#include "tests/midi/message_of.h"
#include "vemo_core/song_builder.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Writes down what the tracker tells the clock.
class RecordingClock : public StandardMidiClock {
public:
    void SetClocksPerClick(int clocksPerClick, unsigned int validAt) override {
        Note("click " + std::to_string(clocksPerClick), validAt);
    }
    void SetClockTime(double clockTime, unsigned int validAt) override {
        std::ostringstream text;
        text << "time " << clockTime;
        Note(text.str(), validAt);
    }
    std::vector<std::string> Take() { return std::exchange(told_, {}); }

    std::mutex* callersMutex = nullptr;
    bool refuses = false;

protected:
    void SetClockTimer(double) override {}
    void StartClock() override {}

private:
    void Note(const std::string& what, unsigned int validAt) {
        if (callersMutex) {
            EXPECT_TRUE(callersMutex->try_lock()) << "the clock was called with the caller's lock held";
            callersMutex->unlock();
        }
        if (refuses)
            throw std::runtime_error("refused");
        told_.push_back(what + " at " + std::to_string(validAt));
    }
    std::vector<std::string> told_;
};

/// Four bars of 4/4 in 480 ticks per quarter note. Written with 125 quarter notes
/// a minute: a clock lasts 0.02 s.
SongBuilder FourBars() {
    SongBuilder builder(480);
    builder.Title(1, "Song").EndAt(7680).Tempo(0, 125);
    return builder;
}

struct Bound {
    UserControls controls;
    RecordingClock clock;
    HowToPlayWithMidiClock tracker{controls, clock};
    explicit Bound(const SongBuilder& builder) {
        tracker.SetData(builder.BuildLog(), builder.BuildSong().GetTimeline(), 480);
    }
};

TEST(HowToPlayWithMidiClock, TellsTheClockEachChangeAtItsTick) {
    const SongBuilder song = FourBars()
                                 .Tempo(960, 62.5)
                                 .Meter(1920, 6, 8, 12, 8)
                                 .Click(1920, 3840, 4)
                                 .TempoScale(2880, 3360, 2.0)
                                 .TempoScale(3360, 3840, 1.25);
    struct Row {
        unsigned int tick;
        std::vector<std::string> first, second;
    };
    const Row rows[] = {
        {0, {"time 0.02 at 0", "click 24 at 0"}, {}},
        {940, {}, {}},
        {960, {"time 0.04 at 960"}, {"time 0.04 at 960"}},
        {980, {}, {}},
        {1940, {"click 12 at 1940"}, {"click 12 at 1940"}},  // meter and click in one
        {1960, {}, {}},
        {2880, {"time 0.02 at 2880"}, {}},
        // The first judges the scale that ends, the second the one that begins.
        {3360, {"time 0.04 at 3360"}, {"time 0.032 at 3360"}},
        // The tick itself, also beyond the song.
        {9000, {"time 0.04 at 9000", "click 12 at 9000"}, {}},
    };
    Bound plain(song);
    Bound locked(song);
    std::mutex mutex;
    locked.clock.callersMutex = &mutex;
    for (const Row& row : rows) {
        for (const auto* told : {&row.first, &row.second}) {
            plain.tracker.AdvanceToTickIndex(row.tick);
            EXPECT_EQ(plain.clock.Take(), *told) << row.tick;
            std::unique_lock lock(mutex);
            locked.tracker.AdvanceToTickIndexWithLock(row.tick, lock);
            EXPECT_TRUE(lock.owns_lock());
            EXPECT_EQ(locked.clock.Take(), *told) << row.tick;
        }
    }
}

TEST(HowToPlayWithMidiClock, OnlyTheAdvanceAfterASeekTellsTheClock) {
    Bound bound(FourBars());
    bound.tracker.Seek(960);
    EXPECT_THAT(bound.clock.Take(), IsEmpty());
    bound.tracker.AdvanceToTickIndex(960);
    EXPECT_THAT(bound.clock.Take(), ElementsAre("time 0.02 at 960", "click 24 at 960"));
    bound.tracker.AdvanceToTickIndex(960);
    bound.tracker.AdvanceToTickIndex(980);
    EXPECT_THAT(bound.clock.Take(), IsEmpty());
    bound.tracker.AdvanceToTickIndex(480);  // back is a seek
    EXPECT_THAT(bound.clock.Take(), ElementsAre("time 0.02 at 480", "click 24 at 480"));

    bound.controls.SetTempoScale(2.0);
    bound.tracker.SetHighSpeed();
    EXPECT_THAT(bound.clock.Take(), ElementsAre("time 0.01 at 0"));
    HowToPlayWithMidiClock copy(bound.tracker);
    copy.SetHighSpeed();
    EXPECT_THAT(bound.clock.Take(), ElementsAre("time 0.01 at 0"));
}

TEST(HowToPlayWithMidiClock, TheCallersLockComesBackWhateverTheClockDoes) {
    Bound bound(FourBars());
    std::mutex mutex;
    std::unique_lock lock(mutex);
    bound.clock.refuses = true;
    EXPECT_THROW(bound.tracker.AdvanceToTickIndexWithLock(20, lock), std::runtime_error);
    EXPECT_TRUE(lock.owns_lock());

    bound.clock.refuses = false;
    lock.unlock();
    bound.tracker.Seek(0);
    EXPECT_THROW(bound.tracker.AdvanceToTickIndexWithLock(0, lock), std::system_error);
    EXPECT_THAT(bound.clock.Take(), IsEmpty());
    bound.tracker.AdvanceToTickIndexWithLock(20, lock);  // nothing left to tell, so no lock is needed
}

TEST(HowToPlayWithMidiClock, ACaesuraIsLeftWithTheValuesOfTheFirstBeatFromIt) {
    Bound bound(FourBars().Tempo(970, 62.5).Meter(1920, 4, 4, 48, 8).Click(960, 1440, 4).TempoScale(1440, 1920, 2.0));
    struct Row {
        unsigned int tick;
        double user, clockTime;
        int clocksPerClick;
    };
    for (const Row& row :
         {Row{0, 1.0, 0.02, 24}, Row{481, 1.0, 0.02, 12}, Row{960, 1.0, 0.02, 12}, Row{961, 1.0, 0.02, 24},
          Row{961, 1.5, 0.02, 24}, Row{1441, 1.0, 0.04, 48}, Row{1441, 9.0, 0.02, 48}, Row{7200, 0.1, 0.08, 48}}) {
        bound.controls.SetTempoScale(row.user);
        double clockTime = 0;
        int clocksPerClick = 0;
        bound.tracker.GetCaesuraResumeParams(row.tick, &clockTime, &clocksPerClick);
        EXPECT_DOUBLE_EQ(clockTime, row.clockTime) << row.tick;
        EXPECT_EQ(clocksPerClick, row.clocksPerClick) << row.tick;
    }
    bound.tracker.GetCaesuraResumeParams(7200, nullptr, nullptr);
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { bound.tracker.GetCaesuraResumeParams(7201, nullptr, nullptr); }),
              "HowToPlayWithMidiClock exceeded the limits of the beat map.");
    EXPECT_EQ(bound.tracker.GetTickIndex(), 0u);
}

}  // namespace
