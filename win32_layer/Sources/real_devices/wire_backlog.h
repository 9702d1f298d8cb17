#pragma once

#include <chrono>
#include <cstddef>

namespace win32_layer {

/// Reckons what a driver still has to send down a MIDI cable, and what more its buffer takes:
/// the kernel drops, unreported, an event that does not fit, and a note-off among them
/// leaves a note sounding.
///
/// Owner:   an output port, by value.
/// Threads: one.
/// Units:   bytes; a cable takes 320 microseconds for each (MIDI 1.0: 31,250 baud).
class WireBacklog {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Short messages may use more of the buffer than long ones, which leave them that much:
    /// the music need not wait behind a dump's pieces.
    bool HasRoomFor(std::size_t count, Time now) const;
    void Add(std::size_t count, Time now);

private:
    Time wireIsFree_{};  // when the driver has sent everything
};

}  // namespace win32_layer
