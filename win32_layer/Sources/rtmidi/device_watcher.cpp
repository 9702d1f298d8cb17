#include "device_watcher.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include "win32_layer/layer.h"

namespace win32_layer {

namespace {

using namespace std::chrono_literals;

constexpr auto kInterval = 1s;

template <typename Device, typename Remove>
void RemoveMissing(std::vector<std::shared_ptr<Device>>& devices, const std::vector<DeviceAddress>& found,
                   Remove remove) {
    std::erase_if(devices, [&](const std::shared_ptr<Device>& device) {
        if (std::find(found.begin(), found.end(), device->GetAddress()) != found.end())
            return false;
        remove(device);
        return true;
    });
}

template <typename Device, typename Add>
void AddNew(std::vector<std::shared_ptr<Device>>& devices, const std::vector<DeviceAddress>& found, Refusals& refusals,
            const RealDevices::Say& say, Add add) {
    refusals.BeginLook(found);
    for (const DeviceAddress& address : found) {
        if (std::any_of(devices.begin(), devices.end(),
                        [&](const auto& device) { return device->GetAddress() == address; }))
            continue;
        if (refusals.HasToWait(address))
            continue;
        // Why it refuses is told the first time alone.
        const auto isMute = std::make_shared<std::atomic<bool>>(refusals.HasRefused(address));
        auto device = std::make_shared<Device>(address, [say, isMute](const std::string& text) {
            if (!*isMute)
                say(text);
        });
        if (!add(device)) {
            refusals.Add(address);
            continue;
        }
        *isMute = false;
        refusals.Forget(address);
        devices.push_back(std::move(device));
    }
}

}  // namespace

DeviceWatcher::DeviceWatcher(std::unique_ptr<DeviceFinder> finder, RealDevices::Say say)
    : say_(std::move(say)), finder_(std::move(finder)) {}

void DeviceWatcher::Start(std::chrono::milliseconds atMost) {
    std::thread([self = shared_from_this()] { self->Run(); }).detach();
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, atMost, [this] { return hasLooked_; });
}

void DeviceWatcher::End() {
    const std::lock_guard lock(mutex_);
    hasToEnd_ = true;
    changed_.notify_all();
}

bool DeviceWatcher::WaitForEnd(std::chrono::steady_clock::time_point until) {
    std::unique_lock lock(mutex_);
    return changed_.wait_until(lock, until, [this] { return hasEnded_; });
}

bool DeviceWatcher::HasToEnd() {
    const std::lock_guard lock(mutex_);
    return hasToEnd_;
}

void DeviceWatcher::Run() {
    for (;;) {
        const FoundDevices found = finder_->Find();
        if (HasToEnd())
            break;
        Update(found);
        std::unique_lock lock(mutex_);
        hasLooked_ = true;
        changed_.notify_all();
        if (changed_.wait_for(lock, kInterval, [this] { return hasToEnd_; }))
            break;
    }
    Update({});
    finder_.reset();
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    changed_.notify_all();
}

void DeviceWatcher::Update(const FoundDevices& found) {
    Layer& layer = Layer::Instance();
    // What has gone first: what is new may be the same device, plugged in again.
    RemoveMissing(outputs_, found.outputs, [&layer](const auto& output) { layer.RemoveOutput(output); });
    RemoveMissing(inputs_, found.inputs, [&layer](const auto& input) { layer.RemoveInput(input); });
    AddNew(outputs_, found.outputs, outputRefusals_, say_,
           [&layer](const auto& output) { return layer.AddOutput(output); });
    AddNew(inputs_, found.inputs, inputRefusals_, say_, [&layer](const auto& input) { return layer.AddInput(input); });
}

}  // namespace win32_layer
