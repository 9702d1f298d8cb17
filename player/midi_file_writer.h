#pragma once

#include <cstdint>
#include <vector>

#include "player/midi_file.h"

namespace player {

/// The bytes of a standard MIDI file of format 0 or 1. The same file gives the
/// same bytes, everywhere.
///
/// Owner:   whoever writes; a value.
/// Threads: one at a time.
/// Errors:  std::invalid_argument for what the format cannot hold: another
///          format, format 0 with any number of tracks but one, more than 65,535
///          tracks, a wait of 2^28 ticks or more between two events.
class MidiFileWriter {
public:
    enum class RunningStatus {
        kNever,  // every event with its status: what a person reads in a hex dump
        kUse     // left out where it repeats; restated after meta and system exclusive, as the standard wants
    };
    explicit MidiFileWriter(RunningStatus runningStatus = RunningStatus::kNever) : runningStatus_(runningStatus) {}

    std::vector<std::uint8_t> Bytes(const MidiFile& file) const;

private:
    void AppendTrack_(std::vector<std::uint8_t>& bytes, const MidiTrack& track) const;

    RunningStatus runningStatus_;
};

}  // namespace player
