#pragma once

#include <array>
#include <cstddef>

#include "midi/frame_rate.h"
#include "midi/vemo_midi_export.h"

/// A whole time code in one message, for a position to go to (MIDI Time Code,
/// full frame). A value; the fields are taken as they are.
///
/// Owner:   whoever sends or received it.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   hours, minutes, seconds and a frame label.
/// Errors:  none. Hours above 31 or a rate that is none of the four make a byte
///          that no port should be given.
class VEMO_MIDI_EXPORT FullFrameMessage {
public:
    static constexpr std::size_t kSize = 10;

    FullFrameMessage(unsigned char hours, unsigned char minutes, unsigned char seconds, unsigned char frames,
                     FrameRate frameRate);

    /// kSize bytes, which live as long as the message.
    const unsigned char* Get() const { return bytes_.data(); }
    unsigned char GetHours() const;
    FrameRate GetFrameRate() const;
    unsigned char GetMinutes() const { return bytes_[6]; }
    unsigned char GetSeconds() const { return bytes_[7]; }
    unsigned char GetFrames() const { return bytes_[8]; }

private:
    std::array<unsigned char, kSize> bytes_;
};
