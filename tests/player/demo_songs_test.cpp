#include "player/demo/demo_songs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "player/demo/demo_part.h"
#include "player/midi_file_import.h"
#include "player/midi_file_writer.h"

namespace {

TEST(DemoSongs, TheCommittedFilesAreWhatTheProgramWrites) {
    const auto folder = std::filesystem::path(VEMO_SOURCE_DIR) / "player" / "demo";
    for (const player::DemoSong& song : player::DemoSongs()) {
        std::ifstream stream(folder / song.fileName, std::ios::binary);
        const std::vector<std::uint8_t> committed{std::istreambuf_iterator<char>(stream), {}};
        const auto written = player::MidiFileWriter(player::MidiFileWriter::RunningStatus::kUse).Bytes(song.file);
        EXPECT_TRUE(committed == written) << song.fileName << ": write it again with write_demo_songs";
    }
}

TEST(DemoSongs, TogetherShowWhatThePlayerFollows) {
    std::size_t tempos = 0, meters = 0, keys = 0, markers = 0, programs = 0, drums = 0;
    for (const player::DemoSong& demo : player::DemoSongs()) {
        const player::ImportedSong song = player::ImportMidiFile(demo.file, 1);
        const TL::Timeline& timeline = song.song.GetTimeline();
        tempos += timeline.GetTempos().size() - 1;
        meters += timeline.GetMeters().size() - 1;
        keys += timeline.GetKeys().size() - 1;
        markers += song.log.GetMarkers().size();
        drums += song.song.GetVoiceData().contains(9);
        for (const auto& channel : song.summary.channels)
            programs += channel.programs.size() > 1;
        // Every note ends within its song, and no other of its pitch begins before.
        for (const auto& [id, track] : song.song.GetVoiceData()) {
            std::vector<bool> sounding(128, false);
            for (const vemo_midi::VoiceEvent& event : track.GetEvents())
                if ((event.message.status & 0xE0) == 0x80) {
                    const bool on = (event.message.status & 0xF0) == 0x90;
                    EXPECT_NE(sounding[event.message.data1], on)
                        << demo.fileName << " channel " << id << " tick " << event.time;
                    sounding[event.message.data1] = on;
                }
            EXPECT_EQ(std::count(sounding.begin(), sounding.end(), true), 0) << demo.fileName << " channel " << id;
        }
    }
    for (const std::size_t count : {tempos, meters, keys, markers, programs})
        EXPECT_GE(count, 3u);
    EXPECT_EQ(drums, 3u);
}

TEST(DemoPart, ReadsTheNamesOfNotes) {
    EXPECT_EQ(player::DemoPart::NoteNumber("C4"), 60);
    EXPECT_EQ(player::DemoPart::NoteNumber("F#5"), 78);
    EXPECT_EQ(player::DemoPart::NoteNumber("Bb3"), 58);
    EXPECT_EQ(player::DemoPart::NoteNumber("B0"), 23);
    for (const char* name : {"", "H4", "C", "C#", "C44", " 4", "c4"})
        EXPECT_THROW(player::DemoPart::NoteNumber(name), std::invalid_argument) << name;
}

}  // namespace
