#pragma once

#include <cstdint>

#include "midi/vemo_midi_export.h"

/// Where a tick of a song lies on the show's time axis, and how fast ticks pass
/// from there on. A value.
///
/// Owner:   a SongTimeCodeReference, or who asked it.
/// Threads: any.
/// Lock:    none.
/// Units:   ticks, seconds from the beginning of the show, seconds per tick.
/// Errors:  none.
class VEMO_MIDI_EXPORT TimeCodePoint {
public:
    TimeCodePoint(std::uint32_t tickIndex, double seconds, double secondsPerTick)
        : tickIndex_(tickIndex), seconds_(seconds), secondsPerTick_(secondsPerTick) {}

    std::uint32_t GetTickIndex() const { return tickIndex_; }
    double GetSeconds() const { return seconds_; }
    double GetSecondsPerTick() const { return secondsPerTick_; }

private:
    std::uint32_t tickIndex_;
    double seconds_;
    double secondsPerTick_;
};
