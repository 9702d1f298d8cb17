#pragma once

#include <memory>
#include <string>

namespace win32_layer {

class JackServer;

enum class DeviceSystem { kAlsa, kJack };

/// A MIDI port of the system.
struct DeviceAddress {
    DeviceSystem system = DeviceSystem::kAlsa;
    std::string name;                    // as RtMidi has it
    std::shared_ptr<JackServer> server;  // JACK's alone
    std::string alias;                   // of what has but an ordinal for a name; else empty
    bool operator==(const DeviceAddress&) const = default;

    /// alias: the first that the server has for that port, or empty. It counts for the
    /// server's own hardware alone: programs have names, and bridges to hardware put numbers
    /// that change into their aliases.
    static DeviceAddress OfJack(std::string name, std::string alias, std::shared_ptr<JackServer> server);

    /// "client:port"; of an alias what follows its driver's name, "Synth midi_playback_1" for
    /// "alsa_pcm:Synth/midi_playback_1". RtMidi appends ALSA's number of the port, and JACK
    /// counts its hardware; either number is another one after a re-plugging.
    std::string GetDisplayName() const;
    /// The same in the platform's characters, and no more of them than its records hold:
    /// without a client that the port's name repeats, and with "~" for the middle.
    std::wstring GetPlatformName() const;
    std::string GetIdentity() const;
};

}  // namespace win32_layer
