#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "win32_layer/layer.h"
#include "win32_layer/midi_output_device.h"

namespace win32_layer {

/// The list of MIDI outputs, and who has them open.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    changesMutex_ around whatever changes who has which device, also while a
///          device opens or closes and while the observer runs; then mutex_, a leaf, under
///          which nothing is called: it alone is in a sender's way.
class OutputDevices {
public:
    /// A place in the list. It stays, and its index with it: a device that is removed
    /// leaves it empty, for another device of the same identity alone.
    struct Place {
        Place(std::shared_ptr<MidiOutputDevice> pluggedIn, std::wstring shownName)
            : identity(pluggedIn->GetIdentity()), name(std::move(shownName)), device(std::move(pluggedIn)) {}
        const std::string identity;
        const std::wstring name;                   // no other place has it
        std::shared_ptr<MidiOutputDevice> device;  // null while it is lost; guarded by mutex_
        // Guarded by changesMutex_.
        bool exclusive = false;
        int streams = 0;
    };

    static OutputDevices& Instance();

    /// False where an open stream waits for this device and it refuses the open.
    bool Add(std::shared_ptr<MidiOutputDevice> device);
    void Remove(const std::shared_ptr<MidiOutputDevice>& device);
    /// Empties the list: no device comes back to a stream that is still open.
    void RemoveAll();
    void SetExclusive(const std::shared_ptr<MidiOutputDevice>& device, bool exclusive);
    void SetObserver(Layer::OutputObserver observer);

    std::vector<std::shared_ptr<MidiOutputDevice>> GetAll() const;
    std::size_t GetCount() const;
    /// Null beyond the list.
    std::shared_ptr<Place> At(std::size_t index) const;
    /// Null while it is lost.
    std::shared_ptr<MidiOutputDevice> GetDevice(const Place& place) const;

    /// Opens the device for one more stream; MMSYSERR_ALLOCATED when it is taken or
    /// refuses, MMSYSERR_NODRIVER while it is lost.
    MMRESULT Open(Place& place);
    void Close(Place& place);

private:
    std::shared_ptr<Place> FindLost(const MidiOutputDevice& device) const;
    std::vector<std::wstring> GetNames() const;
    void Tell(const Place& place, OutputChange change) const;

    std::mutex changesMutex_;
    Layer::OutputObserver observer_;  // guarded by changesMutex_
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Place>> places_;  // guarded by mutex_
};

}  // namespace win32_layer
