#include "output_port.h"

#include <chrono>
#include <stdexcept>

#include "client_name.h"
#include "port_opening.h"

namespace win32_layer {

namespace {

using SteadyClock = std::chrono::steady_clock;

// What every server takes in a cycle, and more than anything but a dump needs.
constexpr std::size_t kJackCycleBytes = 4096;
constexpr std::size_t kJackEventBytes = 12;
// RtMidi hands over in the next cycle, at the latest; the server's clients hear it in that one.
constexpr std::uint64_t kCyclesToLeave = 3;
constexpr std::size_t kInlineBytes = 4;
// Half of what RtMidi's own buffer holds: beyond that it would spin.
constexpr std::size_t kMostUnchecked = 8192;
// The kernel passes a message on at once, into a driver's buffer of 4,096 bytes, and has
// room for half of it as events.
constexpr std::size_t kAlsaPiece = 1024;

}  // namespace

OutputPort::OutputPort(const DeviceAddress& address) : address_(address), output_(ApiOf(address), kClientName) {
    WriteErrorsTo(output_, complaint_);
    if (output_.getCurrentApi() != ApiOf(address))
        throw std::runtime_error("RtMidi lacks this kind of device");
    ownPort_ = OpenPort(output_, address_, "out", complaint_);
    if (address_.server)
        address_.server->Watch(ownPort_);
}

OutputPort::~OutputPort() {
    if (address_.server)
        address_.server->Forget(ownPort_);
}

std::size_t OutputPort::GetLongestPiece() const {
    return address_.server ? kJackCycleBytes - kJackEventBytes : kAlsaPiece;
}

bool OutputPort::IsReadyFor(std::size_t count) {
    return address_.server ? FitsIntoCycle(count) : backlog_.HasRoomFor(count, SteadyClock::now());
}

bool OutputPort::FitsIntoCycle(std::size_t count) {
    const std::uint64_t cycle = address_.server->GetCycles();
    if (cycle != cycle_) {
        sentBefore_ = cycle == cycle_ + 1 ? sentInCycle_ : 0;
        sentInCycle_ = 0;
        cycle_ = cycle;
    }
    const std::size_t bytes = kJackEventBytes + (count > kInlineBytes ? count : 0);
    if (sentBefore_ + sentInCycle_ + bytes > kJackCycleBytes)
        return false;
    if (unchecked_ + bytes > kMostUnchecked) {
        // The server may have thrown RtMidi's client out, which then takes nothing more.
        if (!address_.server->HasPort(ownPort_))
            return false;
        unchecked_ = 0;
    }
    unchecked_ += bytes;
    sentInCycle_ += bytes;
    return true;
}

bool OutputPort::HasLeft() const {
    return !address_.server || address_.server->GetCycles() >= cycle_ + kCyclesToLeave;
}

std::string OutputPort::Send(const std::uint8_t* bytes, std::size_t count) {
    complaint_.clear();
    output_.sendMessage(bytes, count);
    backlog_.Add(count, SteadyClock::now());
    return complaint_;
}

}  // namespace win32_layer
