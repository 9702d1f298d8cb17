#include "player/song_inspection.h"

#include <gtest/gtest.h>

#include <string>

#include "player/midi_file_import.h"

namespace {

using namespace std::string_literals;
using player::MidiTrack;

TEST(SongInspection, TellsAMusicianWhatIsInTheFile) {
    MidiTrack score;
    score.AddMeta(0, 0x03, "Ferry Song");
    score.AddMeta(0, 0x51, "\x07\xA1\x20");
    score.AddMeta(0, 0x59, "\xFD\1"s);
    score.AddMeta(384, 0x58, "\7\3\x0C\x08");
    score.AddMeta(400, 0x06, "Seven");
    score.AddMeta(720, 0x51, "\x0A\x2C\x2A");
    MidiTrack flute;
    flute.AddMeta(0, 0x03, "Flute");
    flute.AddMessage(0, 0xC0, 73, 0);
    flute.AddMessage(10, 0x90, 60, 1);
    flute.AddMessage(20, 0x80, 60, 1);
    flute.AddMessage(20, 0xC0, 74, 0);
    flute.AddMessage(20, 0xB0, 123, 0);
    MidiTrack drums;
    drums.AddMessage(0, 0x99, 36, 1);
    drums.AddSysEx(0, 0xF0, "\x7E\xF7");
    drums.AddSysEx(0, 0xF0, "\x7E\xF7");
    drums.EndAt(1056);

    EXPECT_EQ(player::InspectSong(player::ImportMidiFile({"ferry.mid", 1, 96, {score, flute, drums}}, 1)),
              "Ferry Song\n"
              "  file        ferry.mid, format 1\n"
              "  length      3 bars, 0:06.1\n"
              "  resolution  96 ticks a quarter note\n"
              "  tracks\n"
              "    channel  1  Flute, 4 events, programs 74, 75\n"
              "    channel 10  Channel 10, 1 event\n"
              "  tempos\n"
              "    1:1      120.00 quarter notes a minute\n"
              "    3:1      90.00 quarter notes a minute\n"
              "  meters\n"
              "    1:1      4/4, a click every 24 clocks\n"
              "    2:1      7/8, a click every 12 clocks\n"
              "  keys\n"
              "    1:1      C minor\n"
              "  markers\n"
              "    2:1+16   Seven\n"
              "  not played\n"
              "    1 channel-mode message (controllers 120 to 127)\n"
              "    2 system exclusive messages\n");

    MidiTrack cue;
    cue.AddMeta(0, 0x51, "\x07\xA1\x20");
    cue.AddMeta(0, 0x59, "\x09\0"s);
    cue.EndAt(253 * 25 * 75);  // in seconds: 75
    EXPECT_EQ(player::InspectSong(player::ImportMidiFile({"shows/cue.mid", 0, 0xE7FD, {cue}}, 1)),
              "cue\n"
              "  file        shows/cue.mid, format 0\n"
              "  length      38 bars, 1:15.0\n"
              "  resolution  960 ticks a quarter note (in the file 25 frames a second of 253 ticks)\n"
              "              each event at the nearest of them\n"
              "  tracks\n"
              "  tempos\n"
              "    1:1      120.00 quarter notes a minute\n"
              "  meters\n"
              "    1:1      4/4, a click every 24 clocks\n"
              "  keys\n"
              "    1:1      C major\n"
              "  not played\n"
              "    1 tempo, which SMPTE time leaves without meaning\n"
              "    1 key that is none\n");
}

}  // namespace
