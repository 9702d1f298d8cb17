#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <optional>

#include "win32_layer/layer.h"

namespace win32_layer {

/// The calls that are to fail next.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    mutex_, a leaf.
class Faults {
public:
    static Faults& Instance();

    void Set(Fault fault, unsigned int code, int calls);
    /// The code with which this call has to fail, used up by asking; nothing for
    /// a call that goes its way.
    std::optional<unsigned int> Take(Fault fault);
    void Clear();

private:
    struct Pending {
        unsigned int code = 0;
        int calls = 0;
    };
    static constexpr std::size_t kFaultCount = static_cast<std::size_t>(Fault::kThreadPriority) + 1;

    std::mutex mutex_;
    std::array<Pending, kFaultCount> pending_;
};

}  // namespace win32_layer
