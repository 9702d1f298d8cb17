#pragma once

#include <memory>
#include <string>

#include "win32_layer/win32_layer_export.h"

namespace win32_layer {

class JackServer;

enum class DeviceSystem { kAlsa, kJack };

/// A MIDI port of the system.
struct WIN32_LAYER_EXPORT DeviceAddress {
    DeviceSystem system = DeviceSystem::kAlsa;
    std::string name;                    // as RtMidi has it
    std::shared_ptr<JackServer> server;  // JACK's alone
    bool operator==(const DeviceAddress&) const = default;

    /// "client:port". RtMidi appends ALSA's number of the port, which is another one after
    /// every re-plugging.
    std::string GetDisplayName() const;
    /// The same in the platform's characters, and no more of them than its records hold:
    /// without a client that the port's name repeats, and with "~" for the middle.
    std::wstring GetPlatformName() const;
    std::string GetIdentity() const;
};

}  // namespace win32_layer
