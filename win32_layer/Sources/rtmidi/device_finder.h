#pragma once

#include <RtMidi.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "device_address.h"
#include "jack_server.h"
#include "replug_history.h"

namespace win32_layer {

/// MIDI ports of the system, but for the program's own.
struct FoundDevices {
    std::vector<DeviceAddress> outputs;
    std::vector<DeviceAddress> inputs;
};

/// Looks which MIDI ports of one kind there are.
///
/// Owner:   a watcher's thread, which alone uses it.
/// Errors:  none: what cannot be asked has no ports.
class DeviceFinder {
public:
    virtual ~DeviceFinder() = default;
    /// May wait for the system, for ever if it hangs.
    virtual FoundDevices Find() = 0;
};

class AlsaFinder : public DeviceFinder {
public:
    /// The kernel's loop comes last: no instrument is behind it.
    ///
    /// A device that has been unplugged since the last look is left out once even if it is
    /// back under its old number: the kernel has dropped its connection. RtMidi does not pass
    /// on the sequencer's announcements, which tell; the nodes of the sound cards do.
    FoundDevices Find() override;

private:
    std::optional<RtMidiOut> outputs_;
    std::optional<RtMidiIn> inputs_;
    ReplugHistory history_{&ReplugHistory::InodeOfControl};
};

class JackFinder : public DeviceFinder {
public:
    /// None, once, where the server has died or hangs, or has thrown a client out: what was
    /// found before has to be given up before it is looked for again. So has a port that has
    /// gone since the last look, which is left out once even if it is back.
    FoundDevices Find() override;

private:
    bool ServerIsWell();

    std::shared_ptr<JackServer> server_;
    std::uint64_t cycles_ = 0;
};

/// Of a display name: whether it is the kernel's loop.
bool IsLoop(const std::string& name);

}  // namespace win32_layer
