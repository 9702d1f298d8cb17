#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <memory>
#include <mutex>

#include "device_places.h"
#include "win32_layer/layer.h"
#include "win32_layer/midi_output_device.h"

namespace win32_layer {

/// The list of MIDI outputs, and who has them open.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    changesMutex_ around whatever changes who has which device, also while a
///          device opens or closes and while the observer runs; then that of the places.
class OutputDevices {
public:
    struct Place : DevicePlace<MidiOutputDevice> {
        using DevicePlace::DevicePlace;
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

    const DevicePlaces<Place>& GetPlaces() const { return places_; }

    /// Opens the device for one more stream; MMSYSERR_ALLOCATED when it is taken or
    /// refuses, MMSYSERR_NODRIVER while it is lost.
    MMRESULT Open(Place& place);
    void Close(Place& place);

private:
    void Tell(const Place& place, OutputChange change) const;

    std::mutex changesMutex_;
    Layer::OutputObserver observer_;  // guarded by changesMutex_
    DevicePlaces<Place> places_;
};

}  // namespace win32_layer
