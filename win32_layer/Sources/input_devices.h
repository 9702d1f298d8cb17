#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
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
    /// Asked for a sink each time that a device is opened for an input, with plugMutex_
    /// held: what the device sends does not join on to what came from one before it.
    using PlugIn = std::function<MidiInputDevice::Sink()>;

    /// A place in the list. It stays, and its index with it: a device that is removed
    /// leaves it empty, for another device of the same identity alone, which the input
    /// that is open on it then hears.
    struct Place {
        Place(std::shared_ptr<MidiInputDevice> pluggedIn, std::wstring shownName)
            : identity(pluggedIn->GetIdentity()), name(std::move(shownName)), device(std::move(pluggedIn)) {}
        const std::string identity;
        const std::wstring name;                  // no other place has it
        std::shared_ptr<MidiInputDevice> device;  // null while it is lost; guarded by listMutex_
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

    std::vector<std::shared_ptr<MidiInputDevice>> GetAll() const;
    std::size_t GetCount() const;
    /// Null beyond the list.
    std::shared_ptr<Place> At(std::size_t index) const;
    bool IsLost(const Place& place) const;

    /// MMSYSERR_ALLOCATED when it is taken or refuses, MMSYSERR_NODRIVER while it is lost.
    MMRESULT Open(Place& place, PlugIn plugIn);
    /// No sink is called any more once it has returned.
    void Close(Place& place);

private:
    static void Unplug(Place& place);

    std::mutex plugMutex_;
    mutable std::mutex listMutex_;
    std::vector<std::shared_ptr<Place>> places_;  // guarded by listMutex_
};

}  // namespace win32_layer
