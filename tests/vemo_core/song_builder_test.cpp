#include "vemo_core/song_builder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using vemo_midi::VoiceEvent;

namespace {

/// Each beat as "tick bar:beat".
std::vector<std::string> Beats(const SongBuilder& builder) {
    std::vector<std::string> beats;
    const auto song = builder.BuildSong();
    for (const auto& beat : song.GetTimeline().GetBarsBeats())
        beats.push_back(std::to_string(beat.abs_time()) + " " + beat.as_string());
    return beats;
}

template <class Sequence>
std::vector<unsigned int> Ticks(const Sequence& sequence) {
    std::vector<unsigned int> ticks;
    for (const auto& element : sequence)
        ticks.push_back(element.abs_time());
    return ticks;
}

using TickList = std::vector<unsigned int>;

TEST(SongBuilder, WhatStartsLaterLeavesTheDefaultInFrontOfIt) {
    const auto song = SongBuilder(24).Tempo(48, 90.0).Meter(96, 3, 4, 24, 8).Key(48, -3, true).EndAt(200).BuildSong();
    EXPECT_EQ(Ticks(song.GetTimeline().GetTempos()), (TickList{0, 48}));
    EXPECT_EQ(Ticks(song.GetTimeline().GetMeters()), (TickList{0, 96}));
    EXPECT_EQ(Ticks(song.GetTimeline().GetKeys()), (TickList{0, 48}));
}

TEST(SongBuilder, OfSeveralEntriesAtOneTickTheLastCounts) {
    SongBuilder builder(24);
    builder.EndAt(100).Tempo(50, 80.0).Tempo(0, 60.0).Tempo(50, 70.0).Page(10, 2).Page(10, 3).Page(5, 1);
    builder.Marker(20, "Verse").Marker(20, "Chorus");
    const auto song = builder.BuildSong();
    const auto& tempos = song.GetTimeline().GetTempos();
    ASSERT_EQ(Ticks(tempos), (TickList{0, 50}));
    EXPECT_EQ(tempos[0].quarter_notes_per_minute(), 60.0);
    EXPECT_EQ(tempos[1].quarter_notes_per_minute(), 70.0);
    ASSERT_EQ(Ticks(song.GetTimeline().GetPageNums()), (TickList{5, 10}));
    EXPECT_EQ(song.GetTimeline().GetPageNums()[1].value(), 3u);
    const auto log = builder.BuildLog();
    ASSERT_EQ(log.GetMarkers().size(), 1u);
    EXPECT_EQ(log.GetMarkers()[0].value(), "Chorus");
}

TEST(SongBuilder, LaysOutBeatsBeforeTheEndAndAMeterOffABarLineStartsABar) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(Beats(SongBuilder(24).EndAt(97)), (Lines{"0 1:1", "24 1:2", "48 1:3", "72 1:4", "96 2:1"}));
    EXPECT_EQ(Beats(SongBuilder(24).EndAt(96)), (Lines{"0 1:1", "24 1:2", "48 1:3", "72 1:4"}));
    EXPECT_EQ(Beats(SongBuilder(24).Meter(0, 3, 8, 36, 8).EndAt(40)), (Lines{"0 1:1", "12 1:2", "24 1:3", "36 2:1"}));
    // On the bar line, off it in the middle of a beat, and at the end.
    EXPECT_EQ(Beats(SongBuilder(24).Meter(96, 2, 4, 24, 8).Meter(150, 1, 2, 24, 8).Meter(210, 3, 4, 24, 8).EndAt(210)),
              (Lines{"0 1:1", "24 1:2", "48 1:3", "72 1:4", "96 2:1", "120 2:2", "144 3:1", "150 4:1", "198 5:1"}));
}

TEST(SongBuilder, BeatsOfNoWholeTicksDoNotAddUpTheirError) {
    // 4 * 25 / 64 = 1.5625 ticks: the 64th beat after the start lies at exactly 100.
    const auto song = SongBuilder(25).Meter(0, 7, 64, 24, 8).EndAt(100'001).BuildSong();
    const auto& beats = song.GetTimeline().GetBarsBeats();
    const std::pair<std::size_t, unsigned int> cases[] = {{1, 1}, {2, 3}, {3, 4}, {4, 6}, {64, 100}, {65, 101}};
    for (const auto& [index, tick] : cases)
        EXPECT_EQ(beats[index].abs_time(), tick) << index;
    EXPECT_EQ(beats[64 * 1000].abs_time(), 100'000u);
    EXPECT_EQ(beats[64 * 1000].bar(), 64'000u / 7 + 1);
}

TEST(SongBuilder, SortsATracksEventsByTimeAndKeepsTheOrderWithinATick) {
    std::vector<VoiceEvent> given;
    for (std::uint8_t value = 0; value < 100; ++value)  // ticks 20 and 10 by turns
        given.emplace_back(value % 2 == 0 ? 20 : 10, 0xB0, 0x13, 7, value);
    const auto song = SongBuilder(24).Track(0x13, "Violin", 40, 90, 5, given).EndAt(20).StartAt(20).BuildSong();

    const auto& track = song.GetVoiceData().at(0x13);
    std::vector<VoiceEvent> expected;
    for (std::uint8_t value = 1; value < 100; value += 2)
        expected.emplace_back(10, 0xB3, 0, 7, value);
    for (std::uint8_t value = 0; value < 100; value += 2)
        expected.emplace_back(20, 0xB3, 0, 7, value);
    EXPECT_EQ(track.GetEvents(), expected);
    EXPECT_EQ(track.GetTrackId(), 0x13);
    EXPECT_EQ(track.GetTrackName(), "Violin");
    EXPECT_EQ(track.GetNoteRange(), (std::pair<std::uint8_t, std::uint8_t>{40, 90}));
    EXPECT_EQ(track.GetDefaultProgramChange(), 5);
    EXPECT_EQ(song.GetSongStartTickIndex(), 20u);
}

std::string Outcome(const std::function<void(SongBuilder&)>& call) try {
    SongBuilder builder(24);
    builder.EndAt(1000);
    call(builder);
    builder.BuildSong();
    builder.BuildLog();
    return "accepted";
} catch (const std::invalid_argument& refusal) {
    return refusal.what();
}

void AddEvent(SongBuilder& builder, unsigned short id, const VoiceEvent& event) {
    builder.Track(id, "", 0, 127, 0, {event});
}

TEST(SongBuilder, RefusesWhatNoEngineCouldPlay) {
    const double kNotANumber = std::numeric_limits<double>::quiet_NaN();
    const double kInfinite = std::numeric_limits<double>::infinity();
    using B = SongBuilder;
    const std::pair<std::function<void(B&)>, std::string> cases[] = {
        {[](B&) { B(23); }, "resolution 23 is refused: allowed are 24 to 65535"},
        {[](B&) { B(65535).EndAt(1).BuildSong(); }, "accepted"},
        {[](B&) { B(24).BuildSong(); }, "end is missing: allowed are 1 to 4294901760"},
        {[](B&) { B(24).BuildLog(); }, "end is missing: allowed are 1 to 4294901760"},
        {[](B& b) { b.EndAt(0); }, "end 0 is refused: allowed are 1 to 4294901760"},
        {[](B& b) { b.EndAt(4294901761u); }, "end 4294901761 is refused: allowed are 1 to 4294901760"},
        {[](B& b) { b.StartAt(1001); }, "start 1001 is refused: allowed are 0 to 1000"},
        {[](B& b) { b.StartAt(1000); }, "accepted"},

        {[](B& b) { AddEvent(b, 0, VoiceEvent(1000, 0x90, 0, 60, 1)); }, "accepted"},
        {[](B& b) { AddEvent(b, 0, VoiceEvent(1001, 0x90, 0, 60, 1)); },
         "event tick 1001 is refused: allowed are 0 to the end, 1000"},
        {[](B& b) { b.Tempo(1001, 60); }, "tempo tick 1001 is refused: allowed are 0 to the end, 1000"},
        {[](B& b) { b.Meter(1001, 4, 4, 24, 8).Meter(5, 4, 4, 24, 8); },
         "meter tick 1001 is refused: allowed are 0 to the end, 1000"},
        {[](B& b) { b.Key(1001, 0, false); }, "key tick 1001 is refused: allowed are 0 to the end, 1000"},
        {[](B& b) { b.Page(1001, 1); }, "page tick 1001 is refused: allowed are 0 to the end, 1000"},
        {[](B& b) { b.Marker(1001, ""); }, "marker tick 1001 is refused: allowed are 0 to the end, 1000"},
        {[](B& b) { b.Click(0, 1001, 8); }, "click tick 1001 is refused: allowed are 0 to the end, 1000"},

        {[](B& b) { b.Track(5, "", 0, 127, 0, {}).Track(5, "", 0, 127, 0, {}); },
         "track id 5 is refused: each track has an id of its own"},
        {[](B& b) { b.Track(0, "", 61, 60, 0, {}); }, "low note 61 is refused: allowed are 0 to the high note, 60"},
        {[](B& b) { b.Track(0, "", 60, 60, 0, {}); }, "accepted"},
        {[](B& b) { b.Track(0, "", 0, 128, 0, {}); }, "high note 128 is refused: allowed are 0 to 127"},
        {[](B& b) { b.Track(0, "", 255, 255, 0, {}); }, "accepted"},
        {[](B& b) { b.Track(0, "", 0, 127, 128, {}); }, "default program 128 is refused: allowed are 0 to 127"},
        {[](B& b) { AddEvent(b, 3, VoiceEvent(7, 0xF0, 3, 60, 1)); },
         "event of track 3 at tick 7: status 243 is refused: allowed are 128 to 239"},
        {[](B& b) { AddEvent(b, 3, VoiceEvent(7, 0x70, 3, 60, 1)); },
         "event of track 3 at tick 7: status 115 is refused: allowed are 128 to 239"},
        {[](B& b) { AddEvent(b, 3, VoiceEvent(7, 0x90, 3, 60, 128)); },
         "event of track 3 at tick 7: data byte 128 is refused: allowed are 0 to 127"},
        {[](B& b) { AddEvent(b, 3, VoiceEvent(7, 0x90, 2, 60, 1)); },
         "event of track 3 at tick 7: channel 2 is refused: allowed is the track's, 3"},

        {[](B& b) { b.Tempo(0, 0); }, "tempo 0 is refused: allowed are 0.001 to 6e+07"},
        {[=](B& b) { b.Tempo(0, kNotANumber); }, "tempo nan is refused: allowed are 0.001 to 6e+07"},
        {[=](B& b) { b.Tempo(0, kInfinite); }, "tempo inf is refused: allowed are 0.001 to 6e+07"},
        {[](B& b) { b.Tempo(0, 6e7); }, "accepted"},
        {[](B& b) { b.Meter(0, 0, 4, 24, 8); }, "beats of a bar 0 is refused: allowed are 1 to 255"},
        {[](B& b) { b.Meter(0, 4, 0, 24, 8); }, "beat unit 0 is refused: allowed are 1, 2, 4, 8, 16, 32 and 64"},
        {[](B& b) { b.Meter(0, 4, 6, 24, 8); }, "beat unit 6 is refused: allowed are 1, 2, 4, 8, 16, 32 and 64"},
        {[](B& b) { b.Meter(0, 4, 128, 24, 8); }, "beat unit 128 is refused: allowed are 1, 2, 4, 8, 16, 32 and 64"},
        {[](B& b) { b.Meter(0, 4, 4, 0, 8); }, "clocks per click 0 is refused: allowed are 1 to 255"},
        {[](B& b) { b.Meter(0, 4, 4, 24, 0); }, "notated thirty-seconds per click 0 is refused: allowed are 1 to 255"},
        {[](B& b) { b.Key(0, 8, false); }, "sharps of a key 8 is refused: allowed are -7 to 7"},
        {[](B& b) { b.Key(0, -8, false); }, "sharps of a key -8 is refused: allowed are -7 to 7"},

        {[](B& b) { b.Click(10, 10, 8); }, "end of a click 10 is refused: allowed are ticks after its start, 10"},
        {[](B& b) { b.Click(0, 10, 0); }, "thirty-seconds of a click 0 is refused: allowed are 1 to 255"},
        {[](B& b) { b.Meter(100, 4, 4, 24, 25).Click(0, 100, 1); }, "accepted"},
        {[](B& b) { b.Meter(100, 4, 4, 24, 25).Click(0, 101, 1); },
         "thirty-seconds of the click at tick 0, 1 is refused: allowed are 2 and more, a MIDI clock of its meter"},
        {[](B& b) { b.Meter(0, 4, 4, 24, 25).Meter(100, 4, 4, 24, 8).Click(100, 200, 1); }, "accepted"},
        {[](B& b) { b.TempoScale(0, 10, 0); }, "tempo scale 0 is refused: allowed are 0.001 to 1000"},
        {[=](B& b) { b.TempoScale(0, 10, kNotANumber); }, "tempo scale nan is refused: allowed are 0.001 to 1000"},
        {[](B& b) { b.Transpose(0, 10, 128); }, "transposition 128 is refused: allowed are -127 to 127"},
        {[](B& b) { b.Transpose(0, 10, 1).Transpose(10, 20, 2).TempoScale(5, 15, 2); }, "accepted"},
        {[](B& b) { b.Transpose(10, 20, 1).Transpose(5, 11, 2); },
         "start of a transposition 5 is refused: no transposition may overlap another"},
        {[](B& b) { b.Transpose(10, 20, 1).Transpose(19, 30, 2); },
         "start of a transposition 19 is refused: no transposition may overlap another"},

        {[](B& b) { b.EndAt(24 * 100'000); }, "accepted"},
        {[](B& b) { b.EndAt(24 * 100'000 + 1); }, "beats of the song are more than the 100000 allowed"},
        {[](B& b) { b.Meter(0, 4, 4, 1, 8).EndAt(400'000); }, "accepted"},
        {[](B& b) { b.Meter(0, 4, 4, 1, 8).EndAt(400'001); },
         "clicks of the song, 400001, are more than the 400000 allowed"},
    };
    int row = 0;
    for (const auto& [call, outcome] : cases)
        EXPECT_EQ(Outcome(call), outcome) << "row " << row++;
}

}  // namespace
