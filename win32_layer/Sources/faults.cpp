#include "faults.h"

#include <algorithm>

namespace win32_layer {

Faults& Faults::Instance() {
    // Never destroyed: threads of the layer may still run when the process ends.
    static Faults* const instance = new Faults;
    return *instance;
}

void Faults::Set(Fault fault, unsigned int code, int calls) {
    const std::lock_guard lock(mutex_);
    pending_[static_cast<std::size_t>(fault)] = {code, std::max(calls, 0)};
}

std::optional<unsigned int> Faults::Take(Fault fault) {
    const std::lock_guard lock(mutex_);
    Pending& pending = pending_[static_cast<std::size_t>(fault)];
    if (pending.calls == 0)
        return std::nullopt;
    --pending.calls;
    return pending.code;
}

void Faults::Clear() {
    const std::lock_guard lock(mutex_);
    pending_.fill({});
}

}  // namespace win32_layer
