#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "player/midi_file.h"

namespace player {

/// Reads standard MIDI files of formats 0 and 1.
///
/// It accepts what real files do: running status, also across meta events and
/// system exclusive; unknown chunks; a track count that is wrong; a whole track
/// without its end event; anything after a track's end event or fewer than eight
/// bytes after the last track. What the events mean is the importer's concern.
///
/// Threads: any.
/// Errors:  MidiFileError for a file that cannot be read or is none of these.

/// Reads no more than 64 MiB; a larger file is refused.
MidiFile ReadMidiFile(const std::filesystem::path& path);
/// name stands for the file in messages.
MidiFile ParseMidiFile(std::span<const std::uint8_t> bytes, const std::string& name);

}  // namespace player
