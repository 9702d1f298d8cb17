#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace win32_layer {

/// Takes a MIDI byte stream apart as MIDI 1.0 defines it: expands running status, lets
/// real-time bytes pass inside anything, drops data without status and what is broken
/// off.
///
/// Owner:   an open input; a value.
/// Threads: one at a time.
class MidiByteParser {
public:
    enum class Kind {
        kNothing,     // more has to come
        kShort,       // a whole message: GetMessage()
        kSysExByte,   // one of a system exclusive message, its first 0xF0 included
        kSysExEnd,    // its last, 0xF7
        kSysExBroken  // it was broken off by this status byte, which may be whole: see GetMessage()
    };

    Kind Take(std::uint8_t byte);
    /// Of the latest kShort, and of a kSysExBroken whose status needs no data; else the
    /// first byte is 0. Bytes that it does not have are 0.
    const std::array<std::uint8_t, 3>& GetMessage() const { return message_; }

private:
    Kind TakeStatus(std::uint8_t status);
    Kind TakeData(std::uint8_t data);

    std::array<std::uint8_t, 3> message_{};
    std::uint8_t status_ = 0;  // that data belong to; 0: none
    std::size_t needed_ = 0;   // bytes of its message
    std::size_t taken_ = 0;    // of them
    std::uint8_t first_ = 0;   // data byte, while the second has to come
    bool isInSysEx_ = false;
};

}  // namespace win32_layer
