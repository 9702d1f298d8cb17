#pragma once

#include <RtMidi.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "device_address.h"

namespace win32_layer {

/// An open input of RtMidi.
///
/// Owner:   the line of a real input.
/// Threads: the constructor and the destructor on one; they wait for the system, for ever if
///          it hangs. Messages arrive on a thread of the system's, JACK's own among them;
///          none does any more once the destructor has returned.
/// Lock:    none.
/// Errors:  std::runtime_error from the constructor, with one line.
class InputPort {
public:
    /// A whole message: RtMidi puts system-exclusive ones together. Must not block.
    using Receiver = std::function<void(const std::uint8_t* bytes, std::size_t count)>;

    InputPort(const DeviceAddress& address, Receiver receiver);
    ~InputPort();
    InputPort(const InputPort&) = delete;
    InputPort& operator=(const InputPort&) = delete;

private:
    static void OnMessage(double seconds, std::vector<unsigned char>* message, void* port);

    const DeviceAddress address_;  // first: its server's other clients have to go before it
    const Receiver receiver_;
    std::string complaint_;
    RtMidiIn input_;
    std::string ownPort_;  // JACK's name of it
};

}  // namespace win32_layer
