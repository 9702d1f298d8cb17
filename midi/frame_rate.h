#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "midi/vemo_midi_export.h"

/// The frame rates of MIDI Time Code, by the values that its messages carry.
enum class FrameRate : std::uint8_t {
    k24 = 0,
    k25 = 1,
    k2997Drop = 2,  // 30 labels a second at 29.97 frames a second: labels are dropped to keep up
    k30 = 3,
};

/// The names of the four rates, in the order of their values. Not to be read
/// before the library is loaded: other objects made at load time convert instead.
VEMO_MIDI_EXPORT extern const std::vector<std::string> frameRateStrings;

/// std::logic_error for a value that is none of the four.
VEMO_MIDI_EXPORT std::string ConvertFrameRateToString(FrameRate frameRate);
/// The name has to be one of the four exactly; std::logic_error otherwise.
VEMO_MIDI_EXPORT FrameRate ConvertStringToFrameRate(const std::string& name);
