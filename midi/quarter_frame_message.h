#pragma once

#include <array>
#include <cstddef>

#include "midi/frame_rate.h"
#include "midi/vemo_midi_export.h"

/// One of the eight pieces in which a running time code is told (MIDI Time Code,
/// quarter frame). A value.
///
/// Owner:   whoever sends or received it.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   piece index 0..7.
/// Errors:  QuarterFrameIndexError for another index.
class VEMO_MIDI_EXPORT QuarterFrameMessage {
public:
    static constexpr std::size_t kSize = 2;

    /// Carries the high four bits of the value where the index is odd, else the low four.
    QuarterFrameMessage(unsigned char index, unsigned char value);
    /// The last piece: the rate and the hours' high bit.
    QuarterFrameMessage(unsigned char index, unsigned char hours, FrameRate frameRate);

    /// kSize bytes, which live as long as the message.
    const unsigned char* Get() const { return bytes_.data(); }
    unsigned char GetIndex() const;
    unsigned char GetDataByte() const { return bytes_[1]; }
    /// The four bits at their place in the value: high for an odd index.
    unsigned char GetNibble() const;

private:
    std::array<unsigned char, kSize> bytes_;
};
