#include "layer_clock.h"

#include <utility>

namespace win32_layer {

LayerClock& LayerClock::Instance() {
    static LayerClock* const instance = new LayerClock;
    return *instance;
}

void LayerClock::SetSource(Layer::TimeSource source) {
    auto replacement = source ? std::make_shared<const Layer::TimeSource>(std::move(source)) : nullptr;
    const std::lock_guard lock(mutex_);
    source_.swap(replacement);
}

std::chrono::nanoseconds LayerClock::Now() const {
    std::shared_ptr<const Layer::TimeSource> source;
    {
        const std::lock_guard lock(mutex_);
        source = source_;
    }
    return source ? (*source)() : std::chrono::steady_clock::now().time_since_epoch();
}

}  // namespace win32_layer
