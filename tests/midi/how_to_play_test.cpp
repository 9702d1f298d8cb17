#include "midi/how_to_play.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/midi/console_capture.h"
#include "tests/midi/message_of.h"
#include "vemo_core/song_builder.h"

using testing::Pair;

namespace {

/// Four bars of 4/4 in 480 ticks per quarter note: 7,680 ticks, 20 per clock.
SongBuilder FourBars() {
    SongBuilder builder(480);
    builder.Title(7, "Overture").EndAt(7680);
    return builder;
}

void Load(HowToPlay& tracker, const SongBuilder& builder, unsigned int resolution = 480) {
    tracker.SetData(builder.BuildLog(), builder.BuildSong().GetTimeline(), resolution);
}

/// A tracker with that song.
struct Loaded {
    UserControls controls;
    HowToPlay tracker{controls};
    explicit Loaded(const SongBuilder& builder) { Load(tracker, builder); }
    HowToPlay* operator->() { return &tracker; }
};

/// Which of the nine sequences report a change now.
std::string Changes(HowToPlay& tracker) {
    std::string names;
    const auto add = [&names](bool changed, const char* name) { names += changed ? name : ""; };
    add(tracker.UpdateBar(), "bar ");
    add(tracker.UpdateKey(), "key ");
    add(tracker.UpdateMeter(), "meter ");
    add(tracker.UpdateTempo(), "tempo ");
    add(tracker.UpdatePageNumber(), "page ");
    add(tracker.UpdateMarker(), "marker ");
    add(tracker.UpdateClick(), "click ");
    add(tracker.UpdateTempoScale(), "scale ");
    add(tracker.UpdateTransposition(), "transposition ");
    return names;
}

void AdvanceTwice(HowToPlay& tracker, unsigned int tickIndex) {
    tracker.AdvanceToTickIndex(tickIndex);
    tracker.AdvanceToTickIndex(tickIndex);
}

TEST(HowToPlay, ReportsEachSequenceOnceAfterASeekAndThenWhatAMoveChanges) {
    Loaded song(FourBars()
                    .Tempo(3840, 60)
                    .Meter(1920, 3, 4, 24, 8)
                    .Key(1920, 2, false)
                    .Page(0, 11)
                    .Page(3840, 12)
                    .Marker(480, "Verse")
                    .Click(960, 1920, 4)
                    .TempoScale(0, 480, 1.5)
                    .Transpose(0, 960, 3));
    EXPECT_EQ(Changes(song.tracker), "bar key meter tempo page scale transposition ");
    EXPECT_EQ(Changes(song.tracker), "scale transposition ");  // active, and not so before the move

    const std::pair<unsigned int, const char*> advances[] = {
        {20, ""},
        {480, "bar marker scale "},
        {500, ""},
        {960, "bar click transposition "},
        {1000, ""},
        {1920, "bar key meter click "},
        {1920, "bar key meter "},  // previous positions stay until it moves on
        {1940, ""},
        {3840, "bar tempo page "},
        {7680, "bar "},
        {9000, "bar "},
    };
    for (const auto& [tick, changes] : advances) {
        song->AdvanceToTickIndex(tick);
        EXPECT_EQ(Changes(song.tracker), changes) << tick;
    }
    EXPECT_EQ(song->GetTickIndex(), 7680u);

    song->AdvanceToTickIndex(0);  // back is a seek
    EXPECT_EQ(Changes(song.tracker), "bar key meter tempo page scale transposition ");
    song->Seek(500);
    EXPECT_EQ(Changes(song.tracker), "bar key meter tempo page marker scale transposition ");
    song->SetMarkerUpdated(false);
    EXPECT_EQ(Changes(song.tracker), "bar marker scale ");
}

TEST(HowToPlay, TwoReportsInOneAskBothEveryTime) {
    Loaded song(FourBars().Click(0, 1920, 4).TempoScale(0, 480, 1.5));
    song->Seek(0);  // nothing became active by that
    EXPECT_TRUE(song->UpdateClockTime());
    EXPECT_TRUE(song->UpdateClocksPerClick());
    EXPECT_EQ(Changes(song.tracker), "bar key ");
    EXPECT_FALSE(song->UpdateClockTime());
    EXPECT_FALSE(song->UpdateClocksPerClick());
}

TEST(HowToPlay, TheFirstAdvanceJudgesTheEventsBeforeTheMoveAndTheSecondThoseAfterIt) {
    Loaded song(FourBars().Transpose(0, 480, 2).Transpose(480, 960, 5).TempoScale(480, 960, 1.5));
    song->AdvanceToTickIndex(480);
    EXPECT_EQ(song->GetTranspositionValue(), 0);
    EXPECT_EQ(song->GetPreAdvanceTransposition(), 2);
    EXPECT_EQ(song->GetTempoScaleValue(), 1.5);
    song->AdvanceToTickIndex(480);
    EXPECT_EQ(song->GetTranspositionValue(), 5);
    EXPECT_EQ(song->GetPreAdvanceTempoScale(), 1.5);
    EXPECT_THAT(song->GetTranspositionPair(), Pair(5, 2));
    EXPECT_THAT(song->GetTranspositionPair(), Pair(5, 5));

    song->Seek(960);
    EXPECT_EQ(song->GetPreSeekTempoScale(), 1.5);
    EXPECT_EQ(song->GetPreSeekPitchShift(), 5);
    EXPECT_EQ(song->GetLastSeekClocksPerClick(), 24);
    EXPECT_DOUBLE_EQ(song->GetLastSeekClockTime(), 0.5 / 24);
}

TEST(HowToPlay, TheLastTickBelongsToWhatEndsWithTheSong) {
    Loaded song(FourBars().TempoScale(960, 7680, 1.5).Transpose(960, 7680, 3).Click(960, 7680, 4));
    for (const unsigned int tick : {7679u, 7680u, 9999u}) {
        song->Seek(tick);
        EXPECT_EQ(song->GetTempoScaleValue(), 1.5) << tick;
        EXPECT_EQ(song->GetTranspositionValue(), 3) << tick;
        EXPECT_EQ(song->GetClocksPerClick(), tick == 7679 ? 12 : 24) << tick;
        EXPECT_EQ(song->GetNotated32PerClick(), tick == 7679 ? 4 : 8) << tick;
    }
    EXPECT_EQ(song->GetTempoScaleValueAtTickIndex(7680), 1.0);
    EXPECT_EQ(song->GetTranspositionValueAtTickIndex(7680), 0);
    EXPECT_EQ(song->GetTempoScaleValueAtTickIndex(960), 1.5);
    EXPECT_EQ(song->GetTranspositionValueAtTickIndex(959), 0);
}

TEST(HowToPlay, TempoScalesMultiplyAndAreClampedWhereTheClockNeedsIt) {
    struct Row {
        double user;
        std::optional<double> song;
        double value;
        double applied;  // to the clock
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const Row& row :
         {Row{3.0, {}, 3.0, 2.0}, Row{1.5, 1.5, 2.0, 2.0}, Row{0.1, {}, 0.1, 0.5}, Row{0.5, 0.5, 0.5, 0.5},
          Row{1.2, 1.25, 1.5, 1.5}, Row{nan, 1.0, 0.5, 0.5}, Row{-1.0, {}, -1.0, 0.5}}) {
        SongBuilder builder = FourBars();
        if (row.song)
            builder.TempoScale(0, 480, *row.song);
        Loaded song(builder);
        song.controls.SetTempoScale(row.user);
        EXPECT_DOUBLE_EQ(song->GetTempoScaleValue(), row.value) << row.user;
        EXPECT_DOUBLE_EQ(song->GetClockTime(), 0.5 / 24 / row.applied) << row.user;
        EXPECT_DOUBLE_EQ(song->GetTempoDouble(), 120 * row.value) << row.user;
    }
}

TEST(HowToPlay, CountsClocksFromTheBarOrTheClick) {
    // 12 clocks a click from the bar's third beat on to the middle of its fourth.
    Loaded song(FourBars().Click(960, 1680, 4));
    struct Row {
        unsigned int tick;
        int number, clocksPerClick;
    };
    for (const Row& row : {Row{0, 0, 24}, Row{19, 0, 24}, Row{20, 1, 24}, Row{460, 23, 24}, Row{480, 0, 24},
                           Row{940, 23, 24}, Row{960, 0, 12}, Row{1180, 11, 12}, Row{1200, 0, 12}, Row{1660, 11, 12},
                           Row{1680, 12, 24}, Row{1920, 0, 24}, Row{7680, 0, 24}}) {
        song->Seek(row.tick);
        EXPECT_EQ(song->GetClockNumber(), row.number) << row.tick;
        EXPECT_EQ(song->GetClockNumberAtTickIndex(row.tick), row.number) << row.tick;
        EXPECT_EQ(song->GetClocksPerClickAtTickIndex(row.tick), row.clocksPerClick) << row.tick;
    }

    // A click of 9 clocks that starts on the second beat, 24 clocks into the bar.
    Loaded odd(FourBars().Click(480, 1920, 3));
    odd->Seek(500);
    EXPECT_EQ(odd->GetClockNumber(), 7);
    EXPECT_EQ(odd->GetClockNumberAtTickIndex(500), 1);
    EXPECT_EQ(odd->GetClockNumberAtTickIndex(960), 24 % 9);
}

TEST(HowToPlay, FindsTheClocksAroundATick) {
    Loaded song(FourBars());
    EXPECT_THAT(song->GetNextClockTickIndex(25), Pair(false, 40u));
    EXPECT_THAT(song->GetNextClockTickIndex(40), Pair(true, 40u));
    EXPECT_THAT(song->GetNextClockTickIndex(0), Pair(true, 0u));
    EXPECT_EQ(song->RoundDownToNearestClock(59), 40u);
    EXPECT_EQ(song->RoundDownToNearestClock(60), 60u);
}

TEST(HowToPlay, SaysThePositionInWords) {
    Loaded song(FourBars().Key(0, -3, false).Marker(0, "Verse").Page(0, 3).Transpose(0, 7680, 2));
    song->Seek(2500);
    EXPECT_EQ(song->GetSongTitle(), "7 Overture");
    EXPECT_EQ(song->GetBarString(), "2:2");
    EXPECT_EQ(song->GetMeterString(), "4/4");
    EXPECT_EQ(song->GetKeyString(), "F major");
    EXPECT_EQ(song->GetMarkerString(), "Verse");
    EXPECT_EQ(song->GetPageNumberValue(), 3u);
    EXPECT_EQ(song->GetTempoString(), "120.00");
    EXPECT_EQ(song->GetTempoScaleString(), "100%\n");
    song.controls.SetTempoScale(0.9876);
    EXPECT_EQ(song->GetTempoString(), "118.51");
    EXPECT_EQ(song->GetTempoInteger(), 119);
    EXPECT_EQ(song->GetTempoScaleString(), "99%\n");
    song.controls.SetTempoScale(1.0125);  // 121.5 rounds away from zero
    EXPECT_EQ(song->GetTempoInteger(), 122);
}

TEST(HowToPlay, RefusesToNameWhatTheSongHasNone) {
    Loaded song(FourBars());
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { song->GetClick(); }), "no Click");
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { song->GetTempoScale(); }), "no TempoScale");
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { song->GetTranspose(); }), "no Transposition");
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { song->GetMarker(); }), "no markers");
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { song->GetMarkerTickIndex(); }), "there are no markers");
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { song->GetMarkerString(); }), "there are no markers");
    EXPECT_EQ(MessageOf<std::out_of_range>([&] { song->GetPageNumber(); }), "There are no PageNums");
    EXPECT_EQ(song->GetPageNumberValue(), 1u);
    EXPECT_EQ(song->GetTranspositionValue(), 0);
}

TEST(HowToPlay, NavigatesByMeasures) {
    Loaded song(FourBars());
    EXPECT_EQ(song->GetNextMeasureTickIndex(0), 1920u);
    EXPECT_EQ(song->GetNextMeasureTickIndex(1919), 1920u);
    EXPECT_EQ(song->GetPreviousMeasureTickIndex(1920), 0u);
    EXPECT_EQ(song->GetPreviousMeasureTickIndex(1921), 1920u);
    EXPECT_EQ(MessageOf<HowToPlay::SongEnd>([&] { song->GetNextMeasureTickIndex(5760); }), "");
    EXPECT_THROW(song->GetPreviousMeasureTickIndex(0), HowToPlay::SongBegin);
}

TEST(HowToPlay, KnowsTheClicksToTheEndAndTheNextDspEvent) {
    Loaded song(FourBars().EndAt(1920).Transpose(960, 1400, 1).TempoScale(1400, 1800, 1.5).TempoScale(1800, 1900, 1));
    struct Row {
        unsigned int tick, clicksToEnd, nextDspEvent;
    };
    for (const Row& row : {Row{0, 3, 960}, Row{479, 3, 960}, Row{480, 2, 960}, Row{959, 2, 960}, Row{960, 1, 1400},
                           Row{1400, 1, 1800}, Row{1800, 0, 1900}, Row{1900, 0, 1920}, Row{1920, 0, 1920}}) {
        song->Seek(row.tick);
        EXPECT_EQ(song->GetClicksToSongEnd(), row.clicksToEnd) << row.tick;
        EXPECT_EQ(song->GetTickIndexOfNextDspEvent(), row.nextDspEvent) << row.tick;
    }
    ConsoleCapture console;
    song->WriteDspEvents();
    EXPECT_THAT(console.Take(), testing::HasSubstr("Tempo Scales:\n"
                                                   "\tTempoScaleSequence(code=0x102, event count = 2)\n"
                                                   "\t\tstart=1400 end=1800 value=1.5\n"));
}

TEST(HowToPlay, AnotherSongBeginsAfresh) {
    Loaded song(FourBars().Tempo(1920, 60).Marker(960, "Verse").Transpose(960, 7680, 4).TempoScale(960, 7680, 2));
    EXPECT_TRUE(song->GetSendMarkerAndSongTitle());
    EXPECT_FALSE(song->GetSendMarkerAndSongTitle());
    song->Seek(7000);
    song.controls.SetTransposition(-1);
    Load(song.tracker, SongBuilder(96).Title(8, "Finale").EndAt(384), 96);
    EXPECT_TRUE(song->GetSendMarkerAndSongTitle());
    EXPECT_EQ(song->GetTickIndex(), 0u);
    EXPECT_EQ(song->GetLastTickIndex(), 384u);
    EXPECT_EQ(song->GetSongTitle(), "8 Finale");
    EXPECT_THAT(song->GetTranspositionPair(), Pair(-1, -1));
    EXPECT_EQ(song->GetPreSeekTempoScale(), 1.0);
    EXPECT_EQ(song->RoundDownToNearestClock(7), 4u);
    EXPECT_EQ(Changes(song.tracker), "bar key meter tempo ");
}

TEST(HowToPlay, ValuesThatNoSongShouldHaveDivideNothing) {
    UserControls controls;
    HowToPlay tracker(controls);
    tracker.AdvanceToTickIndex(10);  // no song yet
    tracker.Seek(10);
    EXPECT_EQ(tracker.GetTickIndex(), 0u);
    EXPECT_EQ(tracker.GetClicksToSongEnd(), 0u);

    const TL::Timeline timeline(100, TL::TimelineSequence<TL::BarsBeats>({TL::BarsBeats(50, 1, 1)}),
                                TL::TimelineSequence<TL::Tempo>({TL::Tempo(50, 120)}),
                                TL::TimelineSequence<TL::Meter>({TL::Meter(50, 4, 4, 0, 0)}),
                                TL::TimelineSequence<TL::Key>({TL::Key(50, 0, false)}), {});
    const CL::SongLog log(1, "", CL::ChangeLogSequence<CL::Click>({CL::Click(0, 100, 8)}), {}, {}, {});
    for (const unsigned int resolution : {23u, 24u}) {
        tracker.SetData(log, timeline, resolution);
        for (const unsigned int tick : {0u, 49u, 50u, 75u, 100u}) {
            tracker.Seek(tick);
            EXPECT_EQ(tracker.GetClocksPerClick(), 0) << tick;
            EXPECT_EQ(tracker.GetClockNumber(), 0) << tick;
            EXPECT_EQ(tracker.GetClockNumberAtTickIndex(tick), 0) << tick;
            EXPECT_THAT(tracker.GetNextClockTickIndex(tick), Pair(true, tick));
            EXPECT_EQ(tracker.RoundDownToNearestClock(tick), tick);
            EXPECT_EQ(tracker.GetTempoInteger(), 0);
        }
    }
    // Before the first beat as from it.
    tracker.Seek(0);
    const unsigned int before = tracker.GetClicksToSongEnd();
    tracker.Seek(50);
    EXPECT_EQ(tracker.GetClicksToSongEnd(), before);
    controls.SetTransposition(std::numeric_limits<int>::max());
    EXPECT_EQ(tracker.GetTranspositionValue(), std::numeric_limits<int>::max());
}

/// A song of the seed's making, with everything a log and a timeline can hold.
class RandomSong {
public:
    explicit RandomSong(unsigned int seed) : engine_(seed) {
        static constexpr unsigned short kResolutions[] = {24, 96, 100, 480, 960};
        resolution = kResolutions[Below(5)];
        SongBuilder builder(resolution);
        last = 1 + Below(resolution * 40u);
        builder.EndAt(last);
        for (const unsigned int tick : Ticks(6))
            builder.Tempo(tick, 40 + Below(200));
        for (const unsigned int tick : Ticks(3))
            builder.Meter(tick, 1 + static_cast<int>(Below(7)), 4, 6 + static_cast<int>(Below(42)), 8);
        for (const unsigned int tick : Ticks(4))
            builder.Key(tick, static_cast<int>(Below(15)) - 7, Below(2) == 0);
        for (const unsigned int tick : Ticks(4))
            builder.Page(tick, 1 + Below(50));
        for (const unsigned int tick : Ticks(4))
            builder.Marker(tick, "marker " + std::to_string(tick));
        Pairs(
            [&](unsigned int start, unsigned int end) { builder.Click(start, end, 1 + static_cast<int>(Below(16))); });
        Pairs([&](unsigned int start, unsigned int end) { builder.TempoScale(start, end, 0.5 + 0.1 * Below(15)); });
        Pairs([&](unsigned int start, unsigned int end) {
            builder.Transpose(start, end, static_cast<int>(Below(25)) - 12);
        });
        song = builder.BuildSong();
        log = builder.BuildLog();
    }
    unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(engine_() % limit); }

    unsigned short resolution = 0;
    unsigned int last = 0;
    vemo_midi::SongData song;
    CL::SongLog log;

private:
    std::vector<unsigned int> Ticks(unsigned int most) {
        std::vector<unsigned int> ticks;
        for (unsigned int i = Below(most + 1); i > 0; --i)
            ticks.push_back(Below(last));
        std::sort(ticks.begin(), ticks.end());
        ticks.erase(std::unique(ticks.begin(), ticks.end()), ticks.end());
        return ticks;
    }
    /// Some that touch, some with gaps, now and then one to the very end.
    template <class Add>
    void Pairs(const Add& add) {
        std::vector<unsigned int> ends = Ticks(8);
        if (Below(2) == 0)
            ends.push_back(last);
        for (std::size_t i = 0; i + 1 < ends.size(); i += 1 + Below(2))
            add(ends[i], ends[i + 1]);
    }

    std::mt19937 engine_;
};

/// Everything that depends on the place and not on the way there.
std::string Describe(HowToPlay& tracker, const RandomSong& song) {
    std::ostringstream text;
    text.precision(17);
    const unsigned int tick = tracker.GetTickIndex();
    text << "tick " << tick << " of " << tracker.GetLastTickIndex() << " bar " << tracker.GetBarString() << " beat at "
         << tracker.GetBarBeat().abs_time() << " key " << tracker.GetKey().abs_time() << ' ' << tracker.GetKeyString()
         << " meter " << tracker.GetMeter().abs_time() << ' ' << tracker.GetMeterString() << " tempo "
         << tracker.GetTempo().abs_time() << ' ' << tracker.GetTempoDouble() << ' ' << tracker.GetTempoInteger() << ' '
         << tracker.GetTempoString() << " page " << tracker.GetPageNumberValue() << " scale "
         << tracker.GetTempoScaleValue() << ' ' << tracker.GetTempoScaleString() << " transposition "
         << tracker.GetTranspositionValue() << " clock " << tracker.GetClockTime() << ' ' << tracker.GetClocksPerClick()
         << ' ' << tracker.GetNotated32PerClick() << ' ' << tracker.GetClockNumber() << ' '
         << tracker.GetClockNumberAtTickIndex(tick) << " clicks to end " << tracker.GetClicksToSongEnd() << " next dsp "
         << tracker.GetTickIndexOfNextDspEvent();
    if (!song.log.GetMarkers().empty())
        text << " marker " << tracker.GetMarkerTickIndex() << ' ' << tracker.GetMarkerString();
    if (!song.log.GetClicks().empty())
        text << " click " << tracker.GetClick().start();
    if (!song.log.GetTempoScales().empty())
        text << " scale " << tracker.GetTempoScale().start();
    if (!song.log.GetTranspositions().empty())
        text << " transposition " << tracker.GetTranspose().start();
    return text.str();
}

/// The element in effect, found the slow way.
template <class Sequence>
unsigned int StartAt(const Sequence& sequence, unsigned int tick) {
    unsigned int start = sequence.front().abs_time();
    for (const auto& element : sequence)
        if (element.abs_time() <= tick)
            start = element.abs_time();
    return start;
}

TEST(HowToPlay, AWalkWithEachStepTakenTwiceEqualsASeek) {
    const char* only = std::getenv("VEMO_TEST_SEED");
    const unsigned int first = only ? static_cast<unsigned int>(std::atoi(only)) : 20'250'301;
    for (unsigned int seed = first; seed < first + (only ? 1 : 300) && !HasFailure(); ++seed) {
        SCOPED_TRACE("VEMO_TEST_SEED=" + std::to_string(seed));
        RandomSong song(seed);
        UserControls controls;
        controls.SetTempoScale(0.4 + 0.2 * song.Below(10));
        controls.SetTransposition(static_cast<int>(song.Below(5)) - 2);
        auto original = std::make_unique<HowToPlay>(controls);
        original->SetData(song.log, song.song.GetTimeline(), song.resolution);
        HowToPlay walked(*original);
        HowToPlay sought(std::move(*original));
        original.reset();  // a copy has a song of its own
        for (unsigned int tick = 0; tick <= song.last + 10 && !HasFailure(); tick += song.Below(song.resolution)) {
            AdvanceTwice(walked, tick);
            sought.Seek(song.Below(song.last));
            sought.Seek(tick);
            ASSERT_EQ(Describe(walked, song), Describe(sought, song));
            const unsigned int place = std::min(tick, song.last);
            ASSERT_EQ(walked.GetTempo().abs_time(), StartAt(song.song.GetTimeline().GetTempos(), place));
            ASSERT_EQ(walked.GetBarBeat().abs_time(), StartAt(song.song.GetTimeline().GetBarsBeats(), place));
            if (place < song.last) {
                ASSERT_EQ(walked.GetTempoScaleValue(), walked.GetTempoScaleValueAtTickIndex(place)) << place;
                ASSERT_EQ(walked.GetTranspositionValue(), walked.GetTranspositionValueAtTickIndex(place)) << place;
                ASSERT_EQ(walked.GetClocksPerClick(), walked.GetClocksPerClickAtTickIndex(place)) << place;
            }
        }
    }
}

}  // namespace
