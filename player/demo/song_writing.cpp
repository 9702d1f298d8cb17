#include "player/demo/song_writing.h"

#include <cstdio>
#include <exception>
#include <filesystem>

#include "player/atomic_file.h"
#include "player/midi_file_writer.h"

namespace player {

int WriteSongs(const std::string& name, int count, char** arguments, const std::vector<DemoSong>& songs) {
    if (count != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", name.c_str());
        return 2;
    }
    try {
        for (const DemoSong& song : songs) {
            AtomicFile file(std::filesystem::path(arguments[1]) / song.fileName);
            file.Write(MidiFileWriter(MidiFileWriter::RunningStatus::kUse).Bytes(song.file));
            file.Commit();
        }
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}

}  // namespace player
