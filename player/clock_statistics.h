#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "player/playback_record.h"

namespace player {

/// How regular the clocks of a run were, for the line at its end.
///
/// Owner:   one reader of the feed; a value.
/// Threads: one at a time.
/// Units:   milliseconds. An interval's error is its real length less the
///          scheduled one; the ideal times are the first clock's plus the
///          scheduled lengths, anew after every stop; the drift of a song is how
///          far its last clock was from its ideal time.
class ClockStatistics {
public:
    void Add(const PlaybackRecord& record);
    std::uint64_t GetClocks() const { return clocks_; }
    /// Two lines.
    std::string Report() const;

private:
    std::uint64_t clocks_ = 0;
    std::chrono::nanoseconds previous_{0};
    std::chrono::nanoseconds start_{0};
    double idealSeconds_ = 0;
    double previousLength_ = 0;
    std::vector<float> intervalErrors_;
    std::vector<float> distances_;
    double drift_ = 0;
};

}  // namespace player
