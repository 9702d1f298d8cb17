#include "player/demo/demo_songs.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "player/midi_file_writer.h"
#include "tests/player/temporary_folder.h"

namespace {

TEST(DemoSongs, TheCommittedFilesAreWhatTheProgramWrites) {
    const auto folder = std::filesystem::path(VEMO_SOURCE_DIR) / "player" / "demo";
    for (const player::DemoSong& song : player::DemoSongs()) {
        const auto written = player::MidiFileWriter(player::MidiFileWriter::RunningStatus::kUse).Bytes(song.file);
        EXPECT_TRUE(TemporaryFolder::Contents(folder / song.fileName) == std::string(written.begin(), written.end()))
            << song.fileName << ": write it again with write_demo_songs";
    }
}

}  // namespace
