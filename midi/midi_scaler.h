#pragma once

#include <cstdint>

#include "midi/vemo_midi_export.h"

/// One scale for MIDI values: a track's volume trim.
///
/// Owner:   a value; MidiVolumeScaler holds one per track.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   percent, up to 127; values 0-127.
/// Errors:  none; what is too large becomes 127.
class VEMO_MIDI_EXPORT MidiScaler {
public:
    /// 100, which changes nothing.
    MidiScaler() = default;
    void SetScale(unsigned char scale);
    unsigned char GetScale() const { return static_cast<unsigned char>(scale_); }
    /// Rounded down.
    unsigned char GetScaledMidiValue(unsigned char value) const;

private:
    std::uint16_t scale_ = 100;
};
