#pragma once

#include <cstdint>

/// One short MIDI message as it came in: a status byte with its channel and two
/// data bytes, 0 where it has fewer.
struct MIDIMessage {
    std::uint8_t status = 0;
    std::uint8_t data1 = 0;
    std::uint8_t data2 = 0;

    /// Without the channel.
    std::uint8_t GetStatus() const { return status & 0xF0; }
    /// 0 to 15.
    std::uint8_t GetChannel() const { return status & 0x0F; }
};
