#include "win32_layer/real_devices.h"

#include <chrono>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "device_watcher.h"
#include "jack_server.h"
#include "port_line.h"
#include "win32_layer/layer.h"

namespace win32_layer {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kStartPatience = 2s;
constexpr auto kEndPatience = 2s;
constexpr auto kEndStep = 5ms;

}  // namespace

struct RealDevices::Impl {
    /// Threads that are left behind have nobody to speak to.
    struct Ear {
        std::mutex mutex;
        Say say;  // guarded by mutex
    };
    std::shared_ptr<Ear> ear = std::make_shared<Ear>();
    std::vector<std::shared_ptr<DeviceWatcher>> watchers;
};

bool RealDevices::AreAvailable() {
    return true;
}

RealDevices::RealDevices(Say say) : impl_(std::make_unique<Impl>()) {
    impl_->ear->say = std::move(say);
    const auto tell = [ear = impl_->ear](const std::string& text) {
        const std::lock_guard lock(ear->mutex);
        if (ear->say)
            ear->say(text);
    };
    // One after the other, for the same order every time.
    impl_->watchers.push_back(std::make_shared<DeviceWatcher>(std::make_unique<AlsaFinder>(), tell));
    impl_->watchers.push_back(std::make_shared<DeviceWatcher>(std::make_unique<JackFinder>(), tell));
    const auto until = SteadyClock::now() + kStartPatience;
    for (const auto& watcher : impl_->watchers)
        watcher->Start(std::chrono::duration_cast<std::chrono::milliseconds>(until - SteadyClock::now()));
}

RealDevices::~RealDevices() {
    {
        const std::lock_guard lock(impl_->ear->mutex);
        impl_->ear->say = nullptr;
    }
    const auto until = SteadyClock::now() + kEndPatience;
    for (const auto& watcher : impl_->watchers)
        watcher->End();
    for (const auto& watcher : impl_->watchers)
        watcher->WaitForEnd(until);
    while ((PortLine::Count() > 0 || JackServer::IsInUse()) && SteadyClock::now() < until)
        std::this_thread::sleep_for(kEndStep);
}

}  // namespace win32_layer
