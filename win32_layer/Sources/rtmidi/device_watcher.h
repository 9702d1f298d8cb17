#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "device_finder.h"
#include "real_input.h"
#include "real_output.h"
#include "refusals.h"

namespace win32_layer {

/// Keeps the layer's list as a finder finds the devices, looking once a second.
///
/// Owner:   shared by the real devices and its thread, which may outlive them.
/// Threads: any.
/// Lock:    mutex_, a leaf.
class DeviceWatcher : public std::enable_shared_from_this<DeviceWatcher> {
public:
    DeviceWatcher(std::unique_ptr<DeviceFinder> finder, RealDevices::Say say);

    /// Returns when it has looked for the first time, or that time has passed.
    void Start(std::chrono::milliseconds atMost);
    /// The devices go with it.
    void End();
    bool WaitForEnd(std::chrono::steady_clock::time_point until);

private:
    void Run();
    void Update(const FoundDevices& found);
    bool HasToEnd();

    const RealDevices::Say say_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    bool hasLooked_ = false;
    bool hasToEnd_ = false;
    bool hasEnded_ = false;
    // The thread's own.
    std::unique_ptr<DeviceFinder> finder_;
    std::vector<std::shared_ptr<RealOutput>> outputs_;
    std::vector<std::shared_ptr<RealInput>> inputs_;
    Refusals outputRefusals_;
    Refusals inputRefusals_;
};

}  // namespace win32_layer
