#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "player/midi_track.h"

namespace player {

/// A standard MIDI file in memory, as it stands in the file: nothing merged,
/// scaled or left out but unknown chunks (Standard MIDI Files 1.0).
///
/// Owner: whoever reads or makes one; a value.
struct MidiFile {
    std::string name;              // of the file it was read from, for messages and as a last title
    std::uint16_t format = 1;      // 0: one track; 1: tracks played together
    std::uint16_t division = 480;  // as in the header: ticks per quarter note, or SMPTE in the negative form
    std::vector<MidiTrack> tracks;
};

}  // namespace player
