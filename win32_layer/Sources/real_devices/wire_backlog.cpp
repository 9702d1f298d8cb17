#include "wire_backlog.h"

#include <algorithm>
#include <cstdint>

#include "message_port.h"

namespace win32_layer {

namespace {

constexpr std::chrono::microseconds kTimePerByte{320};
// Of the driver's 4,096 bytes. A long message waits for half of them; a short one comes so
// close to all as a cable that is slower than reckoned allows.
constexpr auto kLongestForLong = kTimePerByte * 2048;
constexpr auto kLongestForShort = kTimePerByte * 3500;

}  // namespace

bool WireBacklog::HasRoomFor(std::size_t count, Time now) const {
    const auto backlog = std::max(wireIsFree_ - now, Time::duration::zero());
    const auto longest = count <= kShortMessageBytes ? kLongestForShort : kLongestForLong;
    return backlog + kTimePerByte * static_cast<std::int64_t>(count) <= longest;
}

void WireBacklog::Add(std::size_t count, Time now) {
    wireIsFree_ = std::max(wireIsFree_, now) + kTimePerByte * static_cast<std::int64_t>(count);
}

}  // namespace win32_layer
