#include "player/midi_file_import.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "player/midi_file_error.h"
#include "tests/midi/message_of.h"

namespace {

using namespace std::string_literals;
using player::ImportedSong;
using player::ImportMidiFile;
using player::MidiFile;
using player::MidiTrack;

constexpr int kTempo = 0x51, kMeter = 0x58, kKey = 0x59, kMarker = 6, kName = 3;

struct Line {  // of a track: a channel message, or a meta event with a payload
    std::uint32_t tick;
    int status, data1, data2 = 0;
    std::string payload = {};
};

MidiTrack Track(const std::vector<Line>& lines, std::uint32_t end = 0) {
    MidiTrack track;
    std::size_t place = 100;
    for (const Line& line : lines) {
        const auto status = static_cast<std::uint8_t>(line.status);
        const auto data1 = static_cast<std::uint8_t>(line.data1);
        if (line.status == 0xFF)
            track.AddMeta(line.tick, data1, line.payload, place++);
        else if (line.status >= 0xF0)
            track.AddSysEx(line.tick, status, line.payload, place++);
        else
            track.AddMessage(line.tick, status, data1, static_cast<std::uint8_t>(line.data2), place++);
    }
    if (end != 0)
        track.EndAt(end, place);
    return track;
}

MidiFile File(std::vector<MidiTrack> tracks, std::uint16_t division = 96, std::uint16_t format = 1) {
    return {"songs/tune.mid", format, division, std::move(tracks)};
}

/// "time:status data1 data2" for each event of a channel.
std::string Events(const ImportedSong& song, unsigned short channel) {
    std::ostringstream text;
    for (const vemo_midi::VoiceEvent& event : song.song.GetVoiceData().at(channel).GetEvents())
        text << (text.tellp() > 0 ? ", " : "") << std::dec << event.time << ':' << std::hex << int{event.message.status}
             << ' ' << int{event.message.data1} << ' ' << int{event.message.data2};
    return text.str();
}

std::string Refusal(const MidiFile& file) {
    return MessageOf<player::MidiFileError>([&] { ImportMidiFile(file, 1); });
}

TEST(MidiFileImport, EachChannelInUseBecomesATrackThatTheEngineCanHoldAndChase) {
    const ImportedSong song = ImportMidiFile(File({Track({{0, 0x99, 36, 100},
                                                          {0, 0x90, 60, 80},
                                                          {24, 0x99, 36, 0},   // a note-off in disguise
                                                          {24, 0xB0, 123, 0},  // channel mode
                                                          {24, 0xB0, 120, 0},
                                                          {24, 0xB0, 127, 0},
                                                          {24, 0xB0, 119, 5},
                                                          {24, 0xB5, 121, 0},  // all that channel 6 has
                                                          {48, 0x80, 60, 10},
                                                          {48, 0xF0, 0, 0, "\x7E\xF7"},
                                                          {48, 0xF7, 0, 0, "\xF3"}})},
                                                  96, 0),
                                             7);
    EXPECT_EQ(Events(song, 0), "0:90 3c 50, 24:b0 77 5, 48:80 3c a");
    EXPECT_EQ(Events(song, 9), "0:99 24 64, 24:89 24 40");
    EXPECT_EQ(song.song.GetVoiceData().size(), 2u);
    EXPECT_EQ(song.song.GetVoiceData().at(0).GetNoteRange(), std::pair(std::uint8_t{0}, std::uint8_t{127}));
    EXPECT_EQ(song.summary.channelModeControllers, 4u);
    EXPECT_EQ(song.summary.systemExclusive, 2u);
    EXPECT_EQ(song.log.GetSongNumber(), "7");
}

TEST(MidiFileImport, EventsAtOneTickKeepTheOrderOfTheFileAndOfItsTracks) {
    const ImportedSong song =
        ImportMidiFile(File({Track({{10, 0xB0, 1, 1}, {20, 0x90, 60, 1}, {20, 0x80, 60, 2}}),
                             Track({{5, 0xB0, 1, 3}, {10, 0xB0, 1, 4}, {20, 0x90, 61, 5}}), Track({{10, 0xB0, 1, 6}})}),
                       1);
    EXPECT_EQ(Events(song, 0), "5:b0 1 3, 10:b0 1 1, 10:b0 1 4, 10:b0 1 6, 20:90 3c 1, 20:80 3c 2, 20:90 3d 5");
}

TEST(MidiFileImport, NamesAndDefaultProgramsComeFromTheFile) {
    const ImportedSong song = ImportMidiFile(
        File({Track({{0, 0xFF, kName, 0, "  The\tTitle "}, {0, 0x92, 60, 1}, {0, 0x93, 60, 1}}),  // two channels
              Track({{0, 0xFF, kName, 0, ""}, {0, 0xFF, kName, 0, "Fl\xF6te"}, {50, 0xC0, 73, 0}, {90, 0xC0, 5, 0}}),
              Track({{0, 0xFF, kName, 0, "Second flute"}, {20, 0xC0, 74, 0}, {95, 0xC0, 73, 0}}),
              Track({{0, 0xFF, kName, 0, "Silent"}}), Track({{0, 0x99, 36, 1}})}),
        1);
    EXPECT_EQ(song.title, "The Title");
    EXPECT_EQ(song.log.GetSongName(), "The Title");
    const auto& tracks = song.song.GetVoiceData();
    EXPECT_EQ(tracks.at(0).GetTrackName(), "Fl\xC3\xB6te");
    EXPECT_EQ(tracks.at(0).GetDefaultProgramChange(), 74);  // the first to sound, not the first in the file
    EXPECT_EQ(song.summary.channels[0].programs, (std::vector<std::uint8_t>{74, 73, 5}));
    EXPECT_EQ(tracks.at(2).GetTrackName(), "Channel 3");
    EXPECT_EQ(tracks.at(2).GetDefaultProgramChange(), 0);
    EXPECT_EQ(tracks.at(9).GetTrackName(), "Channel 10");
    EXPECT_EQ(ImportMidiFile(File({Track({{0, 0xFF, kMarker, 0, "x"}})}), 1).title, "tune");  // no name but the file's
}

TEST(MidiFileImport, TheResolutionBecomesAMultipleOf24Exactly) {
    const struct {
        std::uint16_t division;
        int resolution;
        unsigned int event, end;  // of the file's ticks 7 and 1000
        double tempo;
        std::string text;
    } cases[] = {
        {24, 24, 7, 1000, 75, "24 ticks a quarter note"},
        {100, 600, 42, 6000, 75, "100 ticks a quarter note"},
        {1, 24, 168, 24000, 75, "1 ticks a quarter note"},
        {2729, 65496, 168, 24000, 75, "2729 ticks a quarter note"},  // 24 times it: the last that fits
        {2731, 960, 2, 352, 75, "2731 ticks a quarter note"},        // 2.46 and 351.52, rounded
        {32767, 960, 0, 29, 75, "32767 ticks a quarter note"},       // 0.205 and 29.30
        {32760, 32760, 7, 1000, 75, "32760 ticks a quarter note"},
        // A fixed tempo: 1000 ticks of the file last 1 s (25 frames of 40 ticks), 500 ticks a half.
        {0xE728, 1500 * 2, 42, 6000, 120, "25 frames a second of 40 ticks"},
        {0xE20A, 600, 28, 4000, 120, "30 frames a second of 10 ticks"},
        {0xE350, 1200, 7, 1000, 120.0 * 1000 / 1001, "29.97 frames a second of 80 ticks"},
        {0xE7FD, 960, 2, 304, 120, "25 frames a second of 253 ticks"},  // 2.12 and 303.6
    };
    for (const auto& row : cases) {
        const ImportedSong song = ImportMidiFile(
            File({Track({{0, 0xFF, kTempo, 0, "\x0C\x35\0"s}, {7, 0x90, 60, 1}}, 1000)}, row.division), 1);  // 800 ms
        const TL::Timeline& timeline = song.song.GetTimeline();
        EXPECT_EQ(song.song.GetResolution(), row.resolution) << row.text;
        EXPECT_EQ(song.song.GetVoiceData().at(0).GetEvents()[0].time, row.event) << row.text;
        EXPECT_EQ(timeline.GetLastTickIndex(), row.end) << row.text;
        ASSERT_EQ(timeline.GetTempos().size(), 1u) << row.text;
        EXPECT_DOUBLE_EQ(timeline.GetTempos()[0].quarter_notes_per_minute(), row.tempo) << row.text;
        EXPECT_EQ(song.summary.unusedTempos, row.division < 0x8000 ? 0u : 1u) << row.text;
        EXPECT_EQ(song.summary.division, row.text);
        // In time, whatever the ticks: the end within half a tick of its place.
        const double second = row.division < 0x8000       ? row.division / 0.8
                              : row.division >> 8 == 0xE3 ? 30000.0 / 1001 * (row.division & 0xFF)
                                                          : (256 - (row.division >> 8)) * (row.division & 0xFF);
        const double tick = timeline.GetTempos()[0].tick_time(song.song.GetResolution());
        EXPECT_NEAR(row.end * tick, 1000 / second, song.summary.exactTicks ? 1e-9 : tick / 2) << row.text;
    }
}

TEST(MidiFileImport, TemposMetersKeysAndMarkersBecomeTheTimelineAndTheSongLog) {
    const ImportedSong song =
        ImportMidiFile(File({Track({{0, 0xFF, kTempo, 0, "\x07\xA1\x20"},
                                    {0, 0xFF, kTempo, 0, "\x0F\x42\x40"},  // the last of a tick holds
                                    {0, 0xFF, kMeter, 0, "\x06\x03\0\0"s},
                                    {0, 0xFF, kKey, 0, "\xFD\x01"},
                                    {0, 0xFF, kMarker, 0, "Intro"},
                                    {0, 0xFF, kMarker, 0, "soft"},
                                    {288, 0xFF, kMeter, 0, "\x05\x02\x18\x08\x77"},
                                    {300, 0xFF, kKey, 0, "\x08\0"s},  // no key has 8 sharps
                                    {300, 0xFF, kKey, 0, ""},
                                    {300, 0xFF, kKey, 0, "\2"},
                                    {480, 0xFF, kMarker, 0, "Verse"},
                                    {480, 0xFF, kMeter, 0, "\x03\x02"}}),  // three beats into the bar
                             Track({{100, 0xFF, kTempo, 0, "\x06\x1A\x80"}, {250, 0x90, 60, 1}}, 1000)}),
                       1);
    const TL::Timeline& timeline = song.song.GetTimeline();
    std::ostringstream text;
    for (const TL::Tempo& tempo : timeline.GetTempos())
        text << tempo.abs_time() << " at " << tempo.quarter_notes_per_minute() << "; ";
    for (const TL::Meter& meter : timeline.GetMeters())
        text << meter.abs_time() << ' ' << meter.as_string() << ' ' << meter.clocks_per_click() << ' '
             << meter.notated_32_per_click() << "; ";
    for (const TL::Key& key : timeline.GetKeys())
        text << key.abs_time() << ' ' << key.sharps() << (key.minor() ? " minor; " : " major; ");
    for (const CL::Marker& marker : song.log.GetMarkers())
        text << marker.abs_time() << ' ' << marker.value() << "; ";
    EXPECT_EQ(text.str(),
              "0 at 60; 100 at 150; "
              "0 6/8 24 8; 288 5/4 24 8; 480 3/4 24 8; "
              "0 -3 minor; 300 2 major; "
              "0 Intro / soft; 480 Verse; ");
    EXPECT_EQ(timeline.GetLastTickIndex(), 1000u);  // of the longest track
    EXPECT_EQ(timeline.GetBarsBeats().back().as_string(), "4:3");
    EXPECT_EQ(song.summary.unknownKeys, 2u);
}

TEST(MidiFileImport, ASongOfNoTimeStillPlays) {
    const ImportedSong song = ImportMidiFile(File({Track({{0, 0x90, 60, 1}, {0, 0x80, 60, 1}})}), 1);
    EXPECT_EQ(song.song.GetTimeline().GetLastTickIndex(), 1u);
    EXPECT_EQ(Events(song, 0), "0:90 3c 1, 0:80 3c 1");
    EXPECT_EQ(ImportMidiFile(File({MidiTrack()}), 1).song.GetVoiceData().size(), 0u);
}

TEST(MidiFileImport, RefusesWhatNoSongCanHoldAndSaysWhere) {
    const auto meta = [](int type, const std::string& payload) {
        return File({Track({{0, 0xFF, 1, 0, ""}, {0, 0xFF, type, 0, payload}})});
    };
    const auto end = [](std::uint32_t tick, std::uint16_t division, const std::vector<Line>& lines = {}) {
        return File({Track(lines, tick)}, division);
    };
    const std::vector<Line> shortBeats = {{0, 0xFF, kMeter, 0, "\x04\x06\x18\x08"}};
    const struct {
        MidiFile file;
        std::string outcome;
    } cases[] = {
        {meta(kTempo, "\0\0\0"s), "byte 101: a tempo of 0"},
        {meta(kTempo, "\0\0\1"s), "accepted"},
        {meta(kTempo, "\xFF\xFF\xFF"), "accepted"},
        {meta(kTempo, "\x07\xA1"), "byte 101: a tempo of 2 bytes, 3 are needed"},
        {meta(kMeter, "\0\2\x18\x08"s), "byte 101: a meter of no beats"},
        {meta(kMeter, "\xFF\6\xFF\xFF"), "accepted"},
        {meta(kMeter, "\4\7\x18\x08"), "byte 101: a meter of beats of 1/2^7, 1/64 is the shortest"},
        {meta(kMeter, "\4"), "byte 101: a meter of 1 bytes, 4 are needed"},
        {end(1, 0), "byte 12: a division of 0"},
        {end(1, 0xE700), "byte 12: a division of 0"},
        {end(1, 0xE608), "byte 12: 26 frames a second are no SMPTE time"},
        {end(1, 0x8008), "byte 12: 128 frames a second are no SMPTE time"},
        {File({}), "byte 0: the file has no track"},
        // 100,000 quarter notes, and as many sixty-fourths.
        {end(2'400'000, 24), "accepted"},
        {end(2'400'001, 24), "byte 100: beats of the song are more than the 100000 allowed"},
        {end(150'000, 24, shortBeats), "accepted"},
        {end(150'001, 24, shortBeats), "byte 101: beats of the song are more than the 100000 allowed"},
        {end(4'294'901'760, 32760), "byte 100: beats of the song are more than the 100000 allowed"},
        {end(4'294'901'760, 32760, {{0, 0xFF, kMeter, 0, "\1\0\x18\x08"s}}), "accepted"},
        {end(4'294'901'761, 32760), "byte 100: the song is too long for 32-bit ticks"},
        {end(178'954'240, 1), "byte 100: beats of the song are more than the 100000 allowed"},  // times 24
        {end(178'954'241, 1), "byte 100: the song is too long for 32-bit ticks"},
    };
    int row = 0;
    for (const auto& [file, outcome] : cases)
        EXPECT_EQ(Refusal(file), outcome == "accepted" ? outcome : "songs/tune.mid: " + outcome) << "row " << row++;
}

}  // namespace
