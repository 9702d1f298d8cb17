// Writes generated songs for tests that run the player as a program:
// write_generated_songs FOLDER SEED COUNT
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "player/atomic_file.h"
#include "tests/player/song_generator.h"
#include "zell/format.h"

int main(int count, char** arguments) try {
    if (count != 4) {
        std::fputs("usage: write_generated_songs FOLDER SEED COUNT\n", stderr);
        return 2;
    }
    player::SongGenerator generator(static_cast<std::uint32_t>(std::strtoul(arguments[2], nullptr, 10)));
    const long songs = std::strtol(arguments[3], nullptr, 10);
    for (long song = 1; song <= songs; ++song) {
        player::AtomicFile file(std::filesystem::path(arguments[1]) / zell::format("generated_%03d.mid", song));
        file.Write(generator.NextBytes());
        file.Commit();
    }
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
