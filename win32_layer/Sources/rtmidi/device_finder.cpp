#include "device_finder.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "client_name.h"

namespace win32_layer {

namespace {

// Without it ALSA's library and RtMidi complain on standard error.
constexpr char kSequencer[] = "/dev/snd/seq";

template <typename Client>
std::vector<DeviceAddress> AlsaPorts(std::optional<Client>& client) {
    if (!client) {
        client.emplace(RtMidi::LINUX_ALSA, kClientName);
        client->setErrorCallback([](RtMidiError::Type, const std::string&, void*) {});
    }
    std::vector<DeviceAddress> found;
    const unsigned int count = client->getPortCount();
    for (unsigned int index = 0; index < count; ++index)
        if (std::string name = client->getPortName(index); !name.empty() && !IsOwnPort(name))
            found.push_back({DeviceSystem::kAlsa, std::move(name), nullptr, {}});
    std::stable_partition(found.begin(), found.end(),
                          [](const DeviceAddress& address) { return !IsLoop(address.name); });
    return found;
}

std::vector<DeviceAddress> JackPorts(const std::shared_ptr<JackServer>& server, unsigned long direction) {
    std::vector<DeviceAddress> found;
    for (const std::string& name : server->GetPorts(direction))
        if (!IsOwnPort(name))
            found.push_back(DeviceAddress::OfJack(name, server->GetAlias(name), server));
    return found;
}

void LeaveOut(FoundDevices& found, const std::vector<std::string>& away) {
    const auto hasBeenAway = [&away](const DeviceAddress& address) {
        return std::find(away.begin(), away.end(), address.name) != away.end();
    };
    std::erase_if(found.outputs, hasBeenAway);
    std::erase_if(found.inputs, hasBeenAway);
}

}  // namespace

bool IsLoop(const std::string& name) {
    return name.find("Midi Through") != std::string::npos;
}

FoundDevices AlsaFinder::Find() {
    FoundDevices found;
    if (access(kSequencer, R_OK | W_OK) != 0) {
        outputs_.reset();
        inputs_.reset();
        return found;
    }
    try {
        found.outputs = AlsaPorts(outputs_);
        found.inputs = AlsaPorts(inputs_);
    } catch (const std::exception&) {
        outputs_.reset();
        inputs_.reset();
    }
    std::vector<std::string> names;
    for (const auto* const addresses : {&found.outputs, &found.inputs})
        for (const DeviceAddress& address : *addresses)
            names.push_back(address.name);
    LeaveOut(found, history_.TakeReplugged(names));
    return found;
}

bool JackFinder::ServerIsWell() {
    const std::uint64_t before = std::exchange(cycles_, server_->GetCycles());
    return server_->IsRunning() && cycles_ != before && server_->HasEveryWatchedPort();
}

FoundDevices JackFinder::Find() {
    if (server_ && !ServerIsWell()) {
        server_.reset();
        return {};
    }
    if (!server_) {
        server_ = JackServer::Connect();
        cycles_ = UINT64_MAX;
    }
    if (!server_)
        return {};
    // What takes messages is a server's input, and the program's output.
    FoundDevices found = {JackPorts(server_, JackPortIsInput), JackPorts(server_, JackPortIsOutput)};
    LeaveOut(found, server_->TakeGonePorts());
    return found;
}

}  // namespace win32_layer
