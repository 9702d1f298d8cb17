#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "player/playback_record.h"
#include "player/show_state.h"
#include "player/transport_snapshot.h"

namespace player {

/// Puts together where a show stands: the transport says which song it is and how
/// it is set, the records say how far it has been played.
///
/// The two come by different ways. While one song goes over into the next, either
/// may be ahead of the other, and so a place is taken only for the song, of the
/// show, that it is a place of; until there is one, there is no state.
///
/// While playing, the place is where the bar began; else it is the exact tick.
///
/// Owner:   one keeper of the state.
/// Threads: one at a time; does not block.
/// Units:   songs from 1, ticks of the song, times of the host's clock.
class ShowStateTracker {
public:
    /// The latest snapshot. now: a moment after it was made; what was played before
    /// belongs to no show that comes with it.
    void Take(std::shared_ptr<const TransportSnapshot> snapshot, std::chrono::nanoseconds now);
    /// In the order of playing. The latest snapshot has been taken before.
    void Take(const PlaybackRecord& record);
    /// Nothing plays, and the host has yet to say for this snapshot where it stands.
    bool NeedsStanding() const;
    /// Where the host stands. Believed only where the snapshot says the same: one
    /// that was made while the songs changed can have the place of the next.
    void TakeStanding(unsigned int song, std::uint32_t tick);

    /// Empty without a show, and while the place belongs to another song.
    std::optional<ShowState> GetState() const;
    /// Null before the first snapshot, and without a show.
    const std::shared_ptr<const Show>& GetShow() const { return show_; }
    /// Grows with whatever may change the state.
    std::uint64_t GetChanges() const { return changes_; }
    /// Whether a clock of the show was played.
    bool HasPlayed() const { return hasPlayed_; }

private:
    struct Place {
        unsigned int song = 0;
        std::uint32_t tick = 0;
        std::uint32_t bar = 1;
        std::uint32_t beat = 1;
    };

    bool IsPlaying() const;
    void MoveTo(const Place& place);

    std::shared_ptr<const TransportSnapshot> snapshot_;
    std::shared_ptr<const Show> show_;
    std::chrono::nanoseconds showSince_ = std::chrono::nanoseconds::min();
    std::optional<Place> place_;
    std::optional<Place> ahead_;  // where the first record of a song was that no snapshot tells of yet
    bool isConfirmed_ = false;    // the host's standing agrees with the snapshot
    bool hasPlayed_ = false;
    std::uint64_t changes_ = 0;
};

}  // namespace player
