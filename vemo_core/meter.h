#pragma once

#include <cstdint>
#include <string>

#include "vemo_core/vemo_core_export.h"

namespace TL {

/// A meter from its tick on: beats of one beat unit (4 = quarter note), the MIDI
/// clocks between two clicks, and the notated thirty-seconds of 24 clocks.
class VEMO_CORE_EXPORT Meter {
public:
    Meter(std::uint32_t tickIndex, int beats, int beatUnit, int clocksPerClick, int notated32PerClick)
        : tickIndex_(tickIndex),
          beats_(beats),
          beatUnit_(beatUnit),
          clocksPerClick_(clocksPerClick),
          notated32PerClick_(notated32PerClick) {}

    std::uint32_t abs_time() const { return tickIndex_; }
    int beats() const { return beats_; }
    int beat_unit() const { return beatUnit_; }
    int clocks_per_click() const { return clocksPerClick_; }
    int notated_32_per_click() const { return notated32PerClick_; }
    /// "6/8"
    std::string as_string() const;

private:
    std::uint32_t tickIndex_;
    int beats_;
    int beatUnit_;
    int clocksPerClick_;
    int notated32PerClick_;
};

}  // namespace TL
