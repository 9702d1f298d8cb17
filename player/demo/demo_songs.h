#pragma once

#include <string>
#include <vector>

#include "player/midi_file.h"

namespace player {

/// One of the songs that show what the player can do.
struct DemoSong {
    std::string fileName;  // "1_harbour_lights.mid"
    MidiFile file;
};

/// The demo show, in its order; the same songs, byte for byte, at every call.
std::vector<DemoSong> DemoSongs();

}  // namespace player
