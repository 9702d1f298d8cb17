#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vemo_core/song_data.h"
#include "vemo_core/song_log.h"

namespace player {

/// What an import found in a standard MIDI file, and what of it will not be
/// heard.
struct ImportSummary {
    struct Channel {
        int channel = 0;  // 0..15, the track id
        std::string name;
        std::size_t events = 0;
        std::vector<std::uint8_t> programs;  // 0..127, each once, in the order of the song
    };

    std::string fileName;
    int format = 0;
    std::string division;           // "96 ticks a quarter note", "25 frames a second of 40 ticks"
    bool exactTicks = true;         // false: the song's ticks are rounded
    std::vector<Channel> channels;  // ascending

    std::size_t channelModeControllers = 0;  // 120 to 127
    std::size_t systemExclusive = 0;
    std::size_t unusedTempos = 0;  // of a file in SMPTE time
    std::size_t unknownKeys = 0;
};

/// A song ready for the engine, and the account of its import.
///
/// Owner: whoever imports; a value.
struct ImportedSong {
    vemo_midi::SongData song;
    CL::SongLog log;
    std::string title;
    ImportSummary summary;
};

}  // namespace player
