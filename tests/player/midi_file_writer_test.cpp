#include "player/midi_file_writer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/midi/message_of.h"

namespace {

using player::MidiFile;
using player::MidiFileWriter;
using player::MidiTrack;
using Bytes = std::vector<std::uint8_t>;
using RunningStatus = MidiFileWriter::RunningStatus;

TEST(MidiFileWriter, WritesTheBytesOfTheStandard) {
    MidiFile file{"", 0, 96, {MidiTrack()}};
    MidiTrack& track = file.tracks[0];
    track.AddMeta(0, 0x03, "Hi");
    track.AddMessage(0, 0x90, 60, 64);
    track.AddMessage(128, 0x90, 60, 0);
    track.AddSysEx(128, 0xF0, "\x7E\xF7");
    track.AddMessage(128, 0x90, 62, 64);
    track.AddMessage(16384, 0xC0, 5, 0);
    track.AddMessage(16384, 0xC0, 6, 0);
    track.EndAt(2113664 + 16384);

    const Bytes header = {'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 0, 0, 1, 0, 96, 'M', 'T', 'r', 'k', 0, 0, 0};
    Bytes plain = header;
    plain.insert(plain.end(), {38,   0,    0xFF, 3, 2,    'H', 'i',  0,    0x90, 60,   64,   0x81, 0x00,
                               0x90, 60,   0,    0, 0xF0, 2,   0x7E, 0xF7, 0,    0x90, 62,   64,   0xFF,
                               0x00, 0xC0, 5,    0, 0xC0, 6,   0x81, 0x81, 0x81, 0x00, 0xFF, 0x2F, 0});
    // Restated after system exclusive, left out elsewhere.
    Bytes running = header;
    running.insert(running.end(),
                   {36,   0, 0xFF, 3,  2,  'H',  'i',  0,    0x90, 60, 64, 0x81, 0x00, 60,   0,    0,    0xF0, 2, 0x7E,
                    0xF7, 0, 0x90, 62, 64, 0xFF, 0x00, 0xC0, 5,    0,  6,  0x81, 0x81, 0x81, 0x00, 0xFF, 0x2F, 0});
    EXPECT_EQ(MidiFileWriter().Bytes(file), plain);
    EXPECT_EQ(MidiFileWriter(RunningStatus::kUse).Bytes(file), running);
}

TEST(MidiFileWriter, RefusesWhatTheFormatCannotHold) {
    const auto write = [](const MidiFile& file) {
        return MessageOf<std::invalid_argument>([&] { MidiFileWriter().Bytes(file); });
    };
    MidiTrack wait;
    wait.EndAt((1u << 28) - 1);
    EXPECT_EQ(write({"", 1, 96, {wait}}), "accepted");
    wait.EndAt(1u << 28);
    EXPECT_EQ(write({"", 1, 96, {wait}}), "a MIDI file cannot hold the number 268435456");
    EXPECT_EQ(write({"", 2, 96, {MidiTrack()}}), "format 2 is not written, only 0 and 1");
    EXPECT_EQ(write({"", 0, 96, {MidiTrack(), MidiTrack()}}), "2 tracks do not fit a file of format 0");
    EXPECT_EQ(write({"", 1, 96, std::vector<MidiTrack>(65536)}), "65536 tracks do not fit a file of format 1");
}

}  // namespace
