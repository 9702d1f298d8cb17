#include "refusals.h"

#include <algorithm>

namespace win32_layer {

namespace {

constexpr int kMostLooks = 30;  // one a second

}  // namespace

void Refusals::BeginLook(const std::vector<DeviceAddress>& found) {
    std::erase_if(refusals_, [&found](const Refusal& refusal) {
        return std::find(found.begin(), found.end(), refusal.address) == found.end();
    });
    for (Refusal& refusal : refusals_)
        --refusal.looksLeft;
}

bool Refusals::HasRefused(const DeviceAddress& address) const {
    return std::any_of(refusals_.begin(), refusals_.end(),
                       [&address](const Refusal& refusal) { return refusal.address == address; });
}

bool Refusals::HasToWait(const DeviceAddress& address) const {
    return std::any_of(refusals_.begin(), refusals_.end(), [&address](const Refusal& refusal) {
        return refusal.address == address && refusal.looksLeft > 0;
    });
}

void Refusals::Add(const DeviceAddress& address) {
    const auto known = std::find_if(refusals_.begin(), refusals_.end(),
                                    [&address](const Refusal& refusal) { return refusal.address == address; });
    if (known == refusals_.end()) {
        refusals_.push_back({address});
        return;
    }
    known->looks = std::min(2 * known->looks, kMostLooks);
    known->looksLeft = known->looks;
}

void Refusals::Forget(const DeviceAddress& address) {
    std::erase_if(refusals_, [&address](const Refusal& refusal) { return refusal.address == address; });
}

}  // namespace win32_layer
