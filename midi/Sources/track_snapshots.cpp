#include "midi/track_snapshots.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

using vemo_midi::VoiceEvent;

namespace {

// Whatever an event can set: a note, a controller, the program, the bend.
constexpr std::size_t kControllers = 256;
constexpr std::size_t kProgram = 512;
constexpr std::size_t kBend = 513;
constexpr std::size_t kSlots = 514;
constexpr std::size_t kNoSlot = kSlots;

constexpr std::uint32_t kEmpty = 0xFFFFFFFF;
// Keeps a track that holds next to nothing from being written whole at each beat.
constexpr std::size_t kSpareChanges = 8;

std::size_t SlotOf(const VoiceEvent& event) {
    switch (event.message.status & 0xF0) {
        case 0x80:
        case 0x90: return event.message.data1;
        case 0xB0: return kControllers + event.message.data1;
        case 0xC0: return kProgram;
        case 0xE0: return kBend;
    }
    return kNoSlot;
}

/// The state while the track is walked, as positions of the events that made it,
/// and what changed since the last beat.
class WalkedState {
public:
    WalkedState() {
        live_.fill(kEmpty);
        latest_.fill(kEmpty);
    }

    void Add(const VoiceEvent& event, std::uint32_t position) {
        const std::size_t slot = SlotOf(event);
        if (slot == kNoSlot)
            return;
        if (latest_[slot] == kEmpty)
            touched_.push_back(slot);
        latest_[slot] = position;
    }

    /// The positions that lead from the last beat's state to this one's: the
    /// last event of each slot, but no end of what was not held at the last beat.
    const std::vector<std::uint32_t>& TakeChanges(const std::vector<VoiceEvent>& events) {
        changes_.clear();
        for (const std::size_t slot : touched_) {
            const std::uint32_t position = std::exchange(latest_[slot], kEmpty);
            const bool ends = (events[position].message.status & 0xF0) == 0x80;
            const bool wasLive = live_[slot] != kEmpty;
            if (ends && !wasLive)
                continue;
            live_[slot] = ends ? kEmpty : position;
            liveCount_ = liveCount_ + !ends - wasLive;
            changes_.push_back(position);
        }
        touched_.clear();
        return changes_;
    }

    std::size_t LiveCount() const { return liveCount_; }

    void AppendWhole(std::vector<std::uint32_t>& positions) const {
        std::copy_if(live_.begin(), live_.end(), std::back_inserter(positions),
                     [](std::uint32_t position) { return position != kEmpty; });
    }

private:
    std::array<std::uint32_t, kSlots> live_;
    std::array<std::uint32_t, kSlots> latest_;  // since the last beat
    std::vector<std::size_t> touched_;
    std::vector<std::uint32_t> changes_;
    std::size_t liveCount_ = 0;
};

}  // namespace

TrackSnapshots::TrackSnapshots(const std::vector<VoiceEvent>& events, const std::vector<std::uint32_t>& beatTicks,
                               PersistentMIDI atStart)
    : atStart_(std::move(atStart)) {
    if (events.empty())
        return;
    WalkedState state;
    std::uint32_t begin = 0;
    auto beat = beatTicks.begin();
    std::size_t position = 0;
    while (position < events.size()) {
        beat = std::upper_bound(beat, beatTicks.end(), events[position].time);
        if (beat == beatTicks.end()) {
            lastBeat_ = beatTicks.size() - 1;
            break;
        }
        lastBeat_ = static_cast<std::size_t>(beat - beatTicks.begin());
        for (; position < events.size() && events[position].time < *beat; ++position)
            state.Add(events[position], static_cast<std::uint32_t>(position));

        const auto& changes = state.TakeChanges(events);
        if (changes.empty())
            continue;
        if (positions_.size() - begin + changes.size() > 2 * state.LiveCount() + kSpareChanges) {
            begin = static_cast<std::uint32_t>(positions_.size());
            state.AppendWhole(positions_);
        } else {
            positions_.insert(positions_.end(), changes.begin(), changes.end());
        }
        runs_.push_back({static_cast<std::uint32_t>(lastBeat_), begin, static_cast<std::uint32_t>(positions_.size())});
    }
    positions_.shrink_to_fit();
    runs_.shrink_to_fit();
}

PersistentMIDI TrackSnapshots::GetSnapshot(std::size_t beat, const std::vector<VoiceEvent>& events) const {
    PersistentMIDI state = atStart_;
    const auto after = std::upper_bound(runs_.begin(), runs_.end(), beat,
                                        [](std::size_t wanted, const Run& run) { return wanted < run.beat; });
    if (after == runs_.begin())
        return state;
    const Run& run = *std::prev(after);
    for (std::uint32_t i = run.begin; i < run.end; ++i)
        state.AddEvent(events[positions_[i]]);
    return state;
}
