#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "win32_layer/win32_layer_export.h"

namespace win32_layer {

/// What the layer plays on: the plug for virtual and real MIDI outputs.
///
/// Owner:   shared by the layer's device list and every open stream on it.
/// Threads: Play() is called by one thread at a time per stream, with no lock of
///          the layer held; it must not wait for a wire or for hardware (a device
///          queues within a bound and discards beyond it).
///          Open() and Close() come in pairs, one pair for each stream; several
///          streams may have one device open at a time. Meanwhile the layer opens and
///          closes no other output, so that neither they nor a thread that they wait
///          for may add or remove one. Of a device that is being removed Play() may
///          still run, or begin, when Close() does.
/// Errors:  Open() false refuses the open (MMSYSERR_ALLOCATED). Nothing throws.
class WIN32_LAYER_EXPORT MidiOutputDevice {
public:
    virtual ~MidiOutputDevice();
    /// Up to 32 characters are shown.
    virtual std::wstring GetName() const = 0;
    /// Stable across re-plugging: a device that comes back is known by it.
    virtual std::string GetIdentity() const = 0;
    virtual bool Open() = 0;
    virtual void Close() = 0;
    /// One channel or system message. time is the layer's clock (see Layer).
    virtual void Play(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) = 0;
    /// After the last message of each stream buffer.
    virtual void EndBuffer() {}
};

}  // namespace win32_layer
