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

}  // namespace

bool IsLoop(const std::string& name) {
    return name.find("Midi Through") != std::string::npos;
}

std::vector<DeviceAddress> AlsaFinder::FindOutputs() {
    std::vector<DeviceAddress> found;
    if (access(kSequencer, R_OK | W_OK) != 0) {
        outputs_.reset();
        return found;
    }
    try {
        if (!outputs_) {
            outputs_.emplace(RtMidi::LINUX_ALSA, kClientName);
            outputs_->setErrorCallback([](RtMidiError::Type, const std::string&, void*) {});
        }
        const unsigned int count = outputs_->getPortCount();
        for (unsigned int index = 0; index < count; ++index)
            if (std::string name = outputs_->getPortName(index); !name.empty() && !IsOwnPort(name))
                found.push_back({RtMidi::LINUX_ALSA, std::move(name), nullptr});
    } catch (const std::exception&) {
        outputs_.reset();
    }
    std::stable_partition(found.begin(), found.end(),
                          [](const DeviceAddress& address) { return !IsLoop(address.name); });
    return found;
}

bool JackFinder::ServerIsWell() {
    const std::uint64_t before = std::exchange(cycles_, server_->GetCycles());
    return server_->IsRunning() && cycles_ != before && server_->HasEveryWatchedPort();
}

std::vector<DeviceAddress> JackFinder::FindOutputs() {
    std::vector<DeviceAddress> found;
    if (server_ && !ServerIsWell()) {
        server_.reset();
        return found;
    }
    if (!server_) {
        server_ = JackServer::Connect();
        cycles_ = UINT64_MAX;
    }
    if (!server_)
        return found;
    for (std::string& name : server_->GetPorts(JackPortIsInput))
        if (!IsOwnPort(name))
            found.push_back({RtMidi::UNIX_JACK, std::move(name), server_});
    return found;
}

}  // namespace win32_layer
