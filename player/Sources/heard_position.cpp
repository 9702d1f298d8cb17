#include "player/heard_position.h"

#include <algorithm>
#include <iterator>

namespace player {

namespace {

using namespace std::chrono_literals;
using Kind = PlaybackRecord::Kind;

// Clocks that wait for being heard: more than a quarter of a second holds at any tempo
// that somebody plays.
constexpr std::size_t kMostPlayed = 512;
// How long after its time a click waits for its downbeat. After a run of short clicks
// the downbeats come late, and without the tick that is waited for.
constexpr auto kPatience = 100ms;
constexpr int kClocksPerWhole = 96;

bool IsClick(const PlaybackRecord& record) {
    return record.clockNumber == 0;
}

std::chrono::milliseconds DelayOf(const PlaybackRecord& record) {
    return std::chrono::milliseconds(record.displayDelayMilliseconds);
}

bool FollowsDownbeats(const PlaybackRecord& click) {
    return std::chrono::duration<double>(click.clockSeconds * click.clocksPerClick) > DelayOf(click);
}

}  // namespace

void HeardPosition::Take(const PlaybackRecord& record) {
    if (record.kind == Kind::kDownbeat) {
        const auto click =
            std::find_if(played_.begin() + static_cast<std::ptrdiff_t>(named_), played_.end(),
                         [&](const PlaybackRecord& played) { return IsClick(played) && played.tick == record.tick; });
        if (click == played_.end())
            early_ = record.tick;
        else
            named_ = static_cast<std::size_t>(std::distance(played_.begin(), click)) + 1;
        return;
    }
    if (record.kind != Kind::kClock && record.kind != Kind::kCountIn)
        return;
    if (record.firstAfterStart) {
        // What was under way is over, and of the new start nothing is heard yet.
        played_.clear();
        named_ = 0;
        heard_.reset();
    }
    played_.push_back(record);
    if (IsClick(record) && early_ == record.tick)
        named_ = played_.size();
    early_.reset();
    if (played_.size() > kMostPlayed)
        Hear({});
}

void HeardPosition::Advance(std::chrono::nanoseconds now, const Receiver& heard) {
    while (!played_.empty()) {
        const PlaybackRecord& next = played_.front();
        if (named_ == 0) {
            const bool waits = IsClick(next) && FollowsDownbeats(next);
            if (next.time + DelayOf(next) + (waits ? kPatience : 0ms) > now)
                return;
        }
        Hear(heard);
    }
}

void HeardPosition::Settle(const Receiver& heard) {
    while (!played_.empty())
        Hear(heard);
}

void HeardPosition::Hear(const Receiver& heard) {
    heard_ = played_.front();
    played_.pop_front();
    if (named_ > 0)
        --named_;
    if (heard)
        heard(*heard_);
}

CountInPlace CountInPlaceOf(const PlaybackRecord& countIn) {
    const int clocksPerBar = std::max(1, countIn.countInClocksPerBar);
    const int clocksPerBeat = std::max(1, kClocksPerWhole / std::max(1, countIn.meterUnit));
    const int clocksLeft = std::max(1, countIn.countInClocks);
    const int barsLeft = (clocksLeft + clocksPerBar - 1) / clocksPerBar;
    return {barsLeft, (barsLeft * clocksPerBar - clocksLeft) / clocksPerBeat + 1};
}

}  // namespace player
