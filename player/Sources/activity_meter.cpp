#include "player/activity_meter.h"

namespace player {

namespace {

constexpr std::uint8_t kNoteOn = 0x90;

}  // namespace

void ActivityMeter::Add(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
    if (count >= 3 && (bytes[0] & 0xF0u) == kNoteOn && bytes[2] > 0)
        struck_[bytes[0] & 0x0Fu].store(time.count(), std::memory_order_relaxed);
}

std::vector<int> ActivityMeter::GetActive(std::chrono::nanoseconds now, std::chrono::milliseconds within) const {
    std::vector<int> active;
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        const std::int64_t struck = struck_[channel].load(std::memory_order_relaxed);
        if (struck != 0 && now - std::chrono::nanoseconds(struck) < within)
            active.push_back(static_cast<int>(channel) + 1);
    }
    return active;
}

}  // namespace player
