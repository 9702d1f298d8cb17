#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "device_address.h"
#include "win32_layer/midi_output_device.h"
#include "win32_layer/real_devices.h"

namespace win32_layer {

/// A MIDI output of the system. While it is open, a thread of its own sends what waits in
/// a bounded queue: nobody who plays on it waits for the system.
///
/// Owner:   see MidiOutputDevice; and whoever watches the system's devices.
/// Threads: see MidiOutputDevice. Open() waits two seconds at most, the rest for nothing.
/// Lock:    one for the line, a leaf, and two of the line's; never held while the system is
///          called.
/// Errors:  what a full queue refuses is lost and told, and so is what the system refuses
///          and what waits for too long at the end.
class RealOutput : public MidiOutputDevice {
public:
    RealOutput(DeviceAddress address, RealDevices::Say say);
    ~RealOutput() override;

    const DeviceAddress& GetAddress() const { return address_; }
    std::wstring GetName() const override;
    std::string GetIdentity() const override;
    bool Open() override;
    /// What waits may still be sent for half a second, and short messages for a second.
    void Close() override;
    void Play(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) override;

private:
    class Line;

    const DeviceAddress address_;
    const RealDevices::Say say_;
    int openings_ = 0;  // guarded by the layer, which opens and closes one after another
    std::mutex mutex_;
    std::shared_ptr<Line> line_;  // null unless it is open; guarded by mutex_
};

}  // namespace win32_layer
