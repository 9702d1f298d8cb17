#include "player/demo/demo_songs.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "player/midi_file_writer.h"
#include "shows/show_songs.h"
#include "tests/player/temporary_folder.h"

namespace {

TEST(DemoSongs, TheCommittedFilesAreWhatTheProgramsWrite) {
    const std::filesystem::path root(VEMO_SOURCE_DIR);
    for (const auto& [folder, songs] :
         {std::pair(root / "player/demo", player::DemoSongs()), std::pair(root / "shows", player::ShowSongs())})
        for (const player::DemoSong& song : songs) {
            const auto bytes = player::MidiFileWriter(player::MidiFileWriter::RunningStatus::kUse).Bytes(song.file);
            EXPECT_TRUE(TemporaryFolder::Contents(folder / song.fileName) == std::string(bytes.begin(), bytes.end()))
                << song.fileName << ": write it again with write_demo_songs or write_show_songs";
        }
}

}  // namespace
