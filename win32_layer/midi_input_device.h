#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "win32_layer/win32_layer_export.h"

namespace win32_layer {

/// What the layer hears: the plug for virtual and real MIDI inputs.
///
/// Owner:   shared by the layer's device list and the input that is open on it.
/// Threads: Open() and Close() come in pairs, one pair at a time, with no lock of the
///          layer held; the sink is called by one thread at a time.
/// Errors:  Open() false refuses the open (MMSYSERR_ALLOCATED). Nothing throws.
class WIN32_LAYER_EXPORT MidiInputDevice {
public:
    /// Bytes as they come from the wire, in any fragments. Does not block.
    using Sink = std::function<void(const std::uint8_t* bytes, std::size_t count)>;

    virtual ~MidiInputDevice();
    /// Up to 32 characters are shown.
    virtual std::wstring GetName() const = 0;
    /// Stable across re-plugging, unlike the device's index.
    virtual std::string GetIdentity() const = 0;
    virtual bool Open(Sink sink) = 0;
    /// No call of the sink runs or begins once it has returned.
    virtual void Close() = 0;
};

}  // namespace win32_layer
