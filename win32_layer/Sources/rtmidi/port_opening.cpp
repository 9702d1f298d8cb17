#include "port_opening.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "client_name.h"
#include "jack_server.h"

namespace win32_layer {

namespace {

// A client's own port, whichever way its messages go.
constexpr unsigned long kAnyDirection = 0;

// JACK's alone: a server that hangs inside must not keep ALSA's devices from being opened.
std::mutex& OpeningMutex() {
    static std::mutex* const mutex = new std::mutex;
    return *mutex;
}

void Connect(RtMidi& client, const std::string& name, const char* ownName, std::string& complaint) {
    const unsigned int count = client.getPortCount();
    for (unsigned int index = 0; index < count; ++index) {
        if (client.getPortName(index) != name)
            continue;
        complaint.clear();
        client.openPort(index, ownName);
        // One that has gone just now would have left its index to another.
        if (complaint.empty() && client.getPortName(index) == name)
            return;
        client.closePort();
        throw std::runtime_error(complaint.empty() ? "it has gone" : complaint);
    }
    throw std::runtime_error("it has gone");
}

}  // namespace

RtMidi::Api ApiOf(const DeviceAddress& address) {
    return address.system == DeviceSystem::kAlsa ? RtMidi::LINUX_ALSA : RtMidi::UNIX_JACK;
}

std::string OpenPort(RtMidi& client, const DeviceAddress& address, const char* ownName, std::string& complaint) {
    if (!address.server) {
        Connect(client, address.name, ownName, complaint);
        return {};
    }
    const std::lock_guard lock(OpeningMutex());
    const auto before = address.server->GetPorts(kAnyDirection);
    Connect(client, address.name, ownName, complaint);
    for (const std::string& port : address.server->GetPorts(kAnyDirection))
        if (IsOwnPort(port) && std::find(before.begin(), before.end(), port) == before.end())
            return port;
    throw std::runtime_error("it has gone");
}

void WriteErrorsTo(RtMidi& client, std::string& complaint) {
    client.setErrorCallback(
        [](RtMidiError::Type, const std::string& text, void* to) { *static_cast<std::string*>(to) = text; },
        &complaint);
}

}  // namespace win32_layer
