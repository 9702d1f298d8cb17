#include "player/midi_file_writer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "player/midi_file_reader.h"
#include "tests/player/song_generator.h"

namespace {

using player::MidiFile;
using player::MidiFileWriter;
using player::MidiTrack;
using Bytes = std::vector<std::uint8_t>;
using RunningStatus = MidiFileWriter::RunningStatus;

std::string Refusal(const auto& action) {
    try {
        action();
        return "accepted";
    } catch (const std::invalid_argument& refusal) {
        return refusal.what();
    }
}

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

TEST(MidiFileWriter, WhatTheReaderReadsBackIsWhatWasWritten) {
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        const MidiFile file = player::SongGenerator(seed).Next();
        for (const RunningStatus mode : {RunningStatus::kNever, RunningStatus::kUse}) {
            const MidiFile again = player::ParseMidiFile(MidiFileWriter(mode).Bytes(file), "again.mid");
            ASSERT_EQ(again.format, file.format) << seed;
            ASSERT_EQ(again.division, file.division) << seed;
            ASSERT_EQ(again.tracks.size(), file.tracks.size()) << seed;
            for (std::size_t index = 0; index < file.tracks.size(); ++index) {
                const MidiTrack &was = file.tracks[index], &is = again.tracks[index];
                ASSERT_EQ(is.EndTick(), was.EndTick()) << seed;
                ASSERT_EQ(is.Events().size(), was.Events().size()) << seed;
                for (std::size_t event = 0; event < was.Events().size(); ++event) {
                    const MidiTrack::Event &a = was.Events()[event], &b = is.Events()[event];
                    ASSERT_TRUE(a.tick == b.tick && a.status == b.status && a.data1 == b.data1 && a.data2 == b.data2)
                        << seed;
                    ASSERT_TRUE(a.status < 0xF0 || was.Payload(a) == is.Payload(b)) << seed;
                }
            }
        }
    }
}

TEST(MidiFileWriter, RefusesWhatTheFormatCannotHold) {
    const auto write = [](const MidiFile& file) { return Refusal([&] { MidiFileWriter().Bytes(file); }); };
    MidiTrack wait;
    wait.EndAt((1u << 28) - 1);
    EXPECT_EQ(write({"", 1, 96, {wait}}), "accepted");
    wait.EndAt(1u << 28);
    EXPECT_EQ(write({"", 1, 96, {wait}}), "a MIDI file cannot hold the number 268435456");
    EXPECT_EQ(write({"", 2, 96, {MidiTrack()}}), "format 2 is not written, only 0 and 1");
    EXPECT_EQ(write({"", 0, 96, {MidiTrack(), MidiTrack()}}), "2 tracks do not fit a file of format 0");
    EXPECT_EQ(write({"", 1, 96, std::vector<MidiTrack>(65536)}), "65536 tracks do not fit a file of format 1");
}

TEST(MidiTrack, TakesEventsInTheOrderOfTimeOnly) {
    MidiTrack track;
    track.AddMessage(10, 0x90, 60, 64);
    EXPECT_EQ(Refusal([&] { track.AddMessage(9, 0x80, 60, 64); }), "an event at tick 9 after tick 10");
    EXPECT_EQ(Refusal([&] { track.AddMeta(9, 1, ""); }), "an event at tick 9 after tick 10");
    EXPECT_EQ(Refusal([&] { track.EndAt(9); }), "an end at tick 9 after tick 10");
    EXPECT_EQ(Refusal([&] { track.AddMessage(10, 0xF0, 0, 0); }), "not a channel message");
    EXPECT_EQ(Refusal([&] { track.AddMessage(10, 0x90, 128, 0); }), "not a channel message");
    EXPECT_EQ(Refusal([&] { track.AddMeta(10, 0x2F, ""); }), "a track ends by EndAt");
    EXPECT_EQ(Refusal([&] { track.AddSysEx(10, 0x90, ""); }), "not a system exclusive message");
    EXPECT_EQ(track.Events().size(), 1u);
    EXPECT_EQ(track.EndTick(), 10u);
}

}  // namespace
