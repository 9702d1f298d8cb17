#pragma once

#include <string>

#include "player/imported_song.h"

namespace player {

/// A song described for a musician, in lines: title, length, resolution, tracks,
/// tempos, meters, keys, markers and what will not be played. Channels count from
/// 1 and programs from 1, as on the front of an instrument; places are bar:beat.
///
/// Threads: any.
std::string InspectSong(const ImportedSong& song);

/// How long the song plays from tick 0 to its end by its own tempos and tempo scales:
/// "3:07.5".
///
/// Threads: any.
std::string LengthOf(const ImportedSong& song);

}  // namespace player
