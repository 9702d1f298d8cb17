#pragma once

#include <vector>

#include "device_address.h"

namespace win32_layer {

/// Devices that are there but refused to be opened for those who wait for them. Each is
/// tried again after twice as many looks as before, and after half a minute of them at most.
///
/// Owner:   a watcher, by value.
/// Threads: the watcher's.
class Refusals {
public:
    /// Counts a look, and forgets what has gone: plugged in again it may be well.
    void BeginLook(const std::vector<DeviceAddress>& found);
    bool HasRefused(const DeviceAddress& address) const;
    bool HasToWait(const DeviceAddress& address) const;
    void Add(const DeviceAddress& address);
    void Forget(const DeviceAddress& address);

private:
    struct Refusal {
        DeviceAddress address;
        int looks = 1;  // from the latest refusal to the next try
        int looksLeft = 1;
    };

    std::vector<Refusal> refusals_;
};

}  // namespace win32_layer
