#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <functional>
#include <memory>
#include <mutex>

#include "device_places.h"
#include "win32_layer/midi_input_device.h"

namespace win32_layer {

/// The list of MIDI inputs, and which are open.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    plugMutex_, held while a device is opened or closed, so that a device that goes
///          or comes back meanwhile is seen in one order; then that of the places. No
///          callback runs under either.
class InputDevices {
public:
    /// Asked for a sink each time that a device is opened for an input, with plugMutex_
    /// held: what the device sends does not join on to what came from one before it.
    using PlugIn = std::function<MidiInputDevice::Sink()>;

    /// The input that is open on a place hears the device that comes back to it.
    struct Place : DevicePlace<MidiInputDevice> {
        using DevicePlace::DevicePlace;
        // Guarded by plugMutex_.
        std::shared_ptr<MidiInputDevice> opened{};  // the device, where it was opened and not closed
        PlugIn plugIn{};                            // empty: no input is open
    };

    static InputDevices& Instance();

    /// False where an open input waits for this device and it refuses the open.
    bool Add(std::shared_ptr<MidiInputDevice> device);
    void Remove(const std::shared_ptr<MidiInputDevice>& device);
    /// Empties the list: no device comes back to an input that is still open.
    void RemoveAll();

    const DevicePlaces<Place>& GetPlaces() const { return places_; }

    /// MMSYSERR_ALLOCATED when it is taken or refuses, MMSYSERR_NODRIVER while it is lost.
    MMRESULT Open(Place& place, PlugIn plugIn);
    /// No sink is called any more once it has returned.
    void Close(Place& place);

private:
    static void Unplug(Place& place);

    std::mutex plugMutex_;
    DevicePlaces<Place> places_;
};

}  // namespace win32_layer
