#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

#include "player/playback_record.h"

namespace player {

/// Says which place of the music is heard: the host plays a clock a moment before its
/// sound is out, and a display that ran ahead would show the beat early.
///
/// While clicks are longer than the display's delay, the place follows the delayed
/// downbeats, which name the tick of the click that is heard. Shorter ones overrun
/// those, since they come one for each delay: then it is the clock's place less the
/// delay. At a stop the host's own place counts, which is not this class's business.
///
/// Owner:   one reader of the feed; a value.
/// Threads: one at a time.
/// Units:   times of the host's clock.
class HeardPosition {
public:
    using Receiver = std::function<void(const PlaybackRecord&)>;

    /// In the order of the feed. Only clocks, those of a count-in, and downbeats count.
    void Take(const PlaybackRecord& record);
    /// Moves on to now and hands over every clock that is heard by then, in order.
    void Advance(std::chrono::nanoseconds now, const Receiver& heard = {});
    /// The music has stopped: what was played has been heard.
    void Settle(const Receiver& heard = {});
    /// The clock that is heard; nothing before the first after a start.
    const std::optional<PlaybackRecord>& Get() const { return heard_; }

private:
    void Hear(const Receiver& heard);

    std::deque<PlaybackRecord> played_;  // and not yet heard
    std::size_t named_ = 0;              // so many of them are heard, a downbeat says
    // A downbeat that came before its clock's record, as one with no delay may.
    std::optional<std::uint32_t> early_;
    std::optional<PlaybackRecord> heard_;
};

/// A place in a count-in: how many bars are left, with this one, and the beat in it.
/// It is written "-2:1", and "-1:4" on the last beat before the music.
struct CountInPlace {
    int barsLeft = 1;
    int beat = 1;
};
CountInPlace CountInPlaceOf(const PlaybackRecord& countIn);

}  // namespace player
