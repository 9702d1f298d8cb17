#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "win32_layer/midi_input_device.h"

namespace win32_layer {

/// The list of MIDI inputs, and which are open.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    listMutex_, a leaf; plugMutex_, held while a device is opened or closed, so
///          that a device that goes or comes back meanwhile is seen in one order. No
///          callback runs under either.
class InputDevices {
public:
    /// A place in the list. An open input keeps its place when the device is removed,
    /// hears nothing then, and hears the next device of that identity.
    struct Place {
        // Guarded by listMutex_.
        std::shared_ptr<MidiInputDevice> device;
        bool isListed = true;
        bool isOpen = false;
        // Guarded by plugMutex_.
        bool isPluggedIn = false;  // the device was opened, and not closed
        MidiInputDevice::Sink sink{};
    };

    static InputDevices& Instance();

    void Add(std::shared_ptr<MidiInputDevice> device);
    void Remove(const std::shared_ptr<MidiInputDevice>& device);
    void RemoveAll();

    std::vector<std::shared_ptr<MidiInputDevice>> GetAll() const;
    std::size_t GetCount() const;
    /// Null beyond the list.
    std::shared_ptr<Place> At(std::size_t index) const;
    std::wstring GetName(const Place& place) const;

    /// MMSYSERR_ALLOCATED when it is taken or refuses.
    MMRESULT Open(Place& place, MidiInputDevice::Sink sink);
    /// The sink is not called any more once it has returned.
    void Close(Place& place);
    /// Whether an open input has lost its device.
    bool IsLost(const Place& place) const;

private:
    std::shared_ptr<MidiInputDevice> DeviceOf(const Place& place) const;
    void Unplug(Place& place);

    std::mutex plugMutex_;
    mutable std::mutex listMutex_;
    std::vector<std::shared_ptr<Place>> places_;  // guarded by listMutex_
    std::vector<std::shared_ptr<Place>> lost_;    // open, and not in the list; guarded by listMutex_
};

}  // namespace win32_layer
