// Writes the songs of the shows into a folder: write_show_songs shows
#include <cstdio>
#include <exception>
#include <filesystem>

#include "player/atomic_file.h"
#include "player/midi_file_writer.h"
#include "shows/show_songs.h"

int main(int count, char** arguments) try {
    if (count != 2) {
        std::fputs("usage: write_show_songs FOLDER\n", stderr);
        return 2;
    }
    for (const player::DemoSong& song : player::ShowSongs()) {
        player::AtomicFile file(std::filesystem::path(arguments[1]) / song.fileName);
        file.Write(player::MidiFileWriter(player::MidiFileWriter::RunningStatus::kUse).Bytes(song.file));
        file.Commit();
    }
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
