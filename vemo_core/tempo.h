#pragma once

#include <cstdint>

#include "vemo_core/vemo_core_export.h"

namespace TL {

/// A tempo, in quarter notes per minute, from its tick on.
class VEMO_CORE_EXPORT Tempo {
public:
    Tempo(std::uint32_t tickIndex, double quarterNotesPerMinute)
        : tickIndex_(tickIndex), quarterNotesPerMinute_(quarterNotesPerMinute) {}

    std::uint32_t abs_time() const { return tickIndex_; }
    double quarter_notes_per_minute() const { return quarterNotesPerMinute_; }
    /// Seconds per tick, for a resolution in ticks per quarter note.
    double tick_time(unsigned int resolution) const;
    /// Clicks per minute, a click being so many of the 24 MIDI clocks of a quarter note.
    double bpm(int clocksPerClick) const;
    /// Seconds per MIDI clock.
    double seconds_per_clock() const;

private:
    std::uint32_t tickIndex_;
    double quarterNotesPerMinute_;
};

}  // namespace TL
