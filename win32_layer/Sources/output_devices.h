#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "win32_layer/midi_output_device.h"

namespace win32_layer {

/// The list of MIDI outputs, and who has them open.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    mutex_, a leaf: no device is called under it.
class OutputDevices {
public:
    /// A place in the list. A stream keeps its place when the device is removed,
    /// and then plays into nothing.
    struct Place {
        explicit Place(std::shared_ptr<MidiOutputDevice> pluggedIn) : device(std::move(pluggedIn)) {}
        const std::shared_ptr<MidiOutputDevice> device;
        std::atomic<bool> present{true};  // on its own: a send that just misses a removal is harmless
        bool exclusive = false;           // guarded by mutex_
        int streams = 0;                  // guarded by mutex_
    };

    static OutputDevices& Instance();

    void Add(std::shared_ptr<MidiOutputDevice> device);
    void Remove(const std::shared_ptr<MidiOutputDevice>& device);
    void RemoveAll();
    void SetExclusive(const std::shared_ptr<MidiOutputDevice>& device, bool exclusive);

    std::vector<std::shared_ptr<MidiOutputDevice>> GetAll() const;
    std::size_t GetCount() const;
    /// Null beyond the list.
    std::shared_ptr<Place> At(std::size_t index) const;

    /// Opens the device for one more stream; MMSYSERR_ALLOCATED when it is taken
    /// or refuses.
    MMRESULT Open(Place& place);
    void Close(Place& place);

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Place>> places_;
};

}  // namespace win32_layer
