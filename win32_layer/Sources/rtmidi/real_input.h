#pragma once

#include <memory>
#include <string>

#include "device_address.h"
#include "win32_layer/midi_input_device.h"
#include "win32_layer/real_devices.h"

namespace win32_layer {

/// A MIDI input of the system. While it is open, a thread of its own has the port: nobody
/// who opens or closes it waits for a system that hangs.
///
/// Owner:   see MidiInputDevice; and whoever watches the system's devices.
/// Threads: see MidiInputDevice. Open() waits two seconds at most, Close() for a running
///          sink alone.
/// Lock:    one of the line's, held while the sink runs; before those of the layer.
class RealInput : public MidiInputDevice {
public:
    RealInput(DeviceAddress address, RealDevices::Say say);
    ~RealInput() override;

    const DeviceAddress& GetAddress() const { return address_; }
    std::wstring GetName() const override;
    std::string GetIdentity() const override;
    bool Open(Sink sink) override;
    void Close() override;

private:
    class Line;

    const DeviceAddress address_;
    const RealDevices::Say say_;
    std::shared_ptr<Line> line_;  // null unless it is open; guarded by the layer, which opens and closes in one order
};

}  // namespace win32_layer
