#pragma once

#include <RtMidi.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "device_address.h"
#include "jack_server.h"
#include "message_port.h"
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
class OutputPort : public MessagePort {
public:
    explicit OutputPort(const DeviceAddress& address);
    ~OutputPort() override;
    OutputPort(const OutputPort&) = delete;
    OutputPort& operator=(const OutputPort&) = delete;

    std::size_t GetLongestPiece() const override;
    bool IsConnected() const override { return !address_.server || address_.server->IsRunning(); }
    bool IsReadyFor(std::size_t count) override;
    /// Beyond RtMidi's buffer, and the cycle that a server hands on.
    bool HasLeft() const override;
    std::string Send(const std::uint8_t* bytes, std::size_t count) override;

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
