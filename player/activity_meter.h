#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace player {

/// Which channels strike notes, for the lamps on the operator's screen.
///
/// Owner:   the program; it outlives whoever sends.
/// Threads: any. Does not block.
/// Units:   channels 1..16.
class ActivityMeter {
public:
    /// A message, as it leaves.
    void Add(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time);
    /// The channels that have struck a note within the time before now, ascending.
    std::vector<int> GetActive(std::chrono::nanoseconds now, std::chrono::milliseconds within) const;

private:
    static constexpr std::size_t kChannels = 16;
    // Of the latest note on; 0: none. Relaxed: a lamp may be late.
    std::array<std::atomic<std::int64_t>, kChannels> struck_{};
};

}  // namespace player
