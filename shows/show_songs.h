#pragma once

#include <vector>

#include "player/demo/demo_songs.h"

namespace player {

/// The songs of shows/evening.json, in its order; the same, byte for byte, at every
/// call. Each is short, and another of the things that a show has to get through.
///
/// Errors: std::invalid_argument for a song whose bars are not full.
std::vector<DemoSong> ShowSongs();

}  // namespace player
