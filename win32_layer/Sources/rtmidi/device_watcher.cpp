#include "device_watcher.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "win32_layer/layer.h"

namespace win32_layer {

namespace {

using namespace std::chrono_literals;

constexpr auto kInterval = 1s;

}  // namespace

DeviceWatcher::DeviceWatcher(std::unique_ptr<DeviceFinder> finder, RealOutput::Say say)
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
        const std::vector<DeviceAddress> found = finder_->FindOutputs();
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

void DeviceWatcher::Update(const std::vector<DeviceAddress>& found) {
    // What has gone first: what is new may be the same device, plugged in again.
    std::erase_if(outputs_, [&](const std::shared_ptr<RealOutput>& output) {
        if (std::find(found.begin(), found.end(), output->GetAddress()) != found.end())
            return false;
        Layer::Instance().RemoveOutput(output);
        return true;
    });
    for (const DeviceAddress& address : found) {
        if (std::any_of(outputs_.begin(), outputs_.end(),
                        [&](const auto& output) { return output->GetAddress() == address; }))
            continue;
        auto output = std::make_shared<RealOutput>(address, say_);
        if (Layer::Instance().AddOutput(output))
            outputs_.push_back(std::move(output));
    }
}

}  // namespace win32_layer
