#pragma once

#include <functional>
#include <memory>
#include <string>

#include "win32_layer/win32_layer_export.h"

namespace win32_layer {

/// The MIDI outputs and inputs of the system, ALSA's and JACK's, in the layer's lists:
/// what is plugged in is added, what is unplugged is lost, and what comes back has its
/// place again. A JACK server may die, hang and start anew meanwhile.
///
/// Owner:   the program; at most one at a time. Its devices are removed with it.
/// Threads: any. A thread for each of the two looks once a second what there is; and every
///          port that is open has one, which alone calls what may block. One of them
///          that hangs in a server is left behind.
/// Lock:    none that a sender takes.
/// Errors:  nothing throws. What a device could not be given is told, once for each time
///          that it falls behind.
class WIN32_LAYER_EXPORT RealDevices {
public:
    /// One line for the operator. On threads of the devices; must only post.
    using Say = std::function<void(const std::string&)>;

    /// Whether this build has any: it was made with RtMidi and JACK's library.
    static bool AreAvailable();
    /// Lists what there is, and waits for that two seconds at most.
    explicit RealDevices(Say say);
    /// Waits, two seconds at most, until what was sent has left. Nothing is said any more.
    ~RealDevices();
    RealDevices(const RealDevices&) = delete;
    RealDevices& operator=(const RealDevices&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace win32_layer
