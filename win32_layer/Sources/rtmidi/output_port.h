#pragma once

#include <RtMidi.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "device_address.h"
#include "jack_server.h"
#include "wire_backlog.h"

namespace win32_layer {

/// An open output of RtMidi, given no more at once than what lies behind it can hold:
/// RtMidi loses what does not fit into a JACK cycle and waits, spinning, for a JACK server
/// that is no more; ALSA loses what does not fit into its driver's buffer.
///
/// Owner:   the line of a real output.
/// Threads: one. The constructor and the destructor wait for the system, for ever if it
///          hangs; Send() does not where IsReadyFor() was true.
/// Lock:    none.
/// Errors:  std::runtime_error from the constructor, with one line.
class OutputPort {
public:
    explicit OutputPort(const DeviceAddress& address);
    ~OutputPort();
    OutputPort(const OutputPort&) = delete;
    OutputPort& operator=(const OutputPort&) = delete;

    /// The longest piece of a message that may be sent at once, in bytes.
    std::size_t GetLongestPiece() const;
    /// False once nothing can be sent any more.
    bool IsConnected() const { return !address_.server || address_.server->IsRunning(); }
    /// Whether so many bytes can be sent now.
    bool IsReadyFor(std::size_t count);
    /// Whether what was sent is beyond what the destructor takes back: RtMidi's buffer, and
    /// the cycle that a server hands on.
    bool HasLeft() const;
    /// A message, or a piece of one. Returns what the system has to say against it.
    std::string Send(const std::uint8_t* bytes, std::size_t count);

private:
    bool FitsIntoCycle(std::size_t count);

    const DeviceAddress address_;  // first: its server's other clients have to go before it
    std::string complaint_;
    RtMidiOut output_;
    std::string ownPort_;  // JACK's name of it

    // JACK: in the cycle that runs, and in the one before, of which as much may be left.
    std::uint64_t cycle_ = 0;
    std::size_t sentInCycle_ = 0;
    std::size_t sentBefore_ = 0;
    std::size_t unchecked_ = 0;  // bytes since RtMidi's client was last seen alive
    WireBacklog backlog_;        // ALSA's driver's
};

}  // namespace win32_layer
