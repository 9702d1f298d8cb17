#pragma once

#include <chrono>
#include <memory>
#include <mutex>

#include "win32_layer/layer.h"

namespace win32_layer {

/// The time that stamps what is played and what is heard.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    mutex_, a leaf: the source runs outside it, and is called under no lock of
///          the layer.
class LayerClock {
public:
    static LayerClock& Instance();

    /// Empty: the steady clock.
    void SetSource(Layer::TimeSource source);
    std::chrono::nanoseconds Now() const;

private:
    mutable std::mutex mutex_;
    // Shared, so that asking copies no function, which might allocate.
    std::shared_ptr<const Layer::TimeSource> source_;
};

}  // namespace win32_layer
