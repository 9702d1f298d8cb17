#include "player/show_state_tracker.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace player {

namespace {

/// The bar and beat in which a tick lies; nothing for a song that cannot be played.
std::optional<std::pair<std::uint32_t, std::uint32_t>> BarBeatAt(const Show& show, unsigned int song,
                                                                 std::uint32_t tick) {
    const auto& songs = show.GetSongs();
    if (song == 0 || song > songs.size() || !songs[song - 1].song)
        return std::nullopt;
    const auto& beats = songs[song - 1].song->song.GetTimeline().GetBarsBeats();
    const auto next = std::upper_bound(beats.begin(), beats.end(), tick,
                                       [](std::uint32_t at, const auto& beat) { return at < beat.abs_time(); });
    if (next == beats.begin())
        return std::nullopt;
    const auto& beat = *std::prev(next);
    return std::pair<std::uint32_t, std::uint32_t>(beat.bar(), beat.beat());
}

}  // namespace

void ShowStateTracker::Take(std::shared_ptr<const TransportSnapshot> snapshot, std::chrono::nanoseconds now) {
    if (snapshot_ && snapshot_->number == snapshot->number)
        return;
    if (snapshot->show != show_) {
        // Songs of two shows have the same numbers. Before the first snapshot there
        // was no other show.
        if (snapshot_)
            showSince_ = now;
        show_ = snapshot->show;
        place_.reset();
        ahead_.reset();
        hasPlayed_ = false;
    }
    snapshot_ = std::move(snapshot);
    isConfirmed_ = false;
    ++changes_;
    if (IsPlaying() && ahead_ && ahead_->song == snapshot_->song) {
        if (!place_ || place_->song != ahead_->song)
            MoveTo(*ahead_);
        ahead_.reset();
    }
}

void ShowStateTracker::Take(const PlaybackRecord& record) {
    using Kind = PlaybackRecord::Kind;
    if (!snapshot_ || !show_ || (record.kind != Kind::kClock && record.kind != Kind::kCountIn))
        return;
    if (record.time < showSince_)
        return;
    if (record.kind == Kind::kClock && !hasPlayed_) {
        hasPlayed_ = true;
        ++changes_;
    }
    // What is still on its way after a stop is older than what the snapshot says.
    if (!IsPlaying())
        return;
    const Place here{record.song, record.tick, record.bar, record.beat};
    if (record.song != snapshot_->song) {
        if (record.kind == Kind::kClock && (!ahead_ || ahead_->song != record.song))
            ahead_ = here;
        return;
    }
    ahead_.reset();
    // Back within a bar is another place as well.
    if (!place_ || place_->song != here.song || place_->bar != here.bar || here.tick < place_->tick)
        MoveTo(here);
}

bool ShowStateTracker::NeedsStanding() const {
    return snapshot_ && show_ && snapshot_->song != 0 && !IsPlaying() && !isConfirmed_;
}

void ShowStateTracker::TakeStanding(unsigned int song, std::uint32_t tick) {
    if (!NeedsStanding() || song != snapshot_->song || tick != snapshot_->tick)
        return;
    isConfirmed_ = true;
    const auto bar = BarBeatAt(*show_, song, tick);
    MoveTo({song, tick, bar ? bar->first : 0, bar ? bar->second : 0});
}

std::optional<ShowState> ShowStateTracker::GetState() const {
    if (!snapshot_ || !show_)
        return std::nullopt;
    const auto& songs = show_->GetSongs();
    ShowState state;
    if (snapshot_->song != 0) {
        if (NeedsStanding() || !place_ || place_->song != snapshot_->song)
            return std::nullopt;
        state.song = songs.at(snapshot_->song - 1).key;
        state.tick = place_->tick;
        if (place_->bar != 0)
            state.bar = std::to_string(place_->bar) + ":" + std::to_string(place_->beat);
    }
    for (const TransportSnapshot::Entry& entry : snapshot_->setList)
        state.setList.push_back({songs.at(entry.song).key, entry.then});
    state.entry = snapshot_->entry;
    state.tempoScale = snapshot_->tempoScale;
    state.transposition = snapshot_->transposition;
    state.holds = snapshot_->holds;
    state.mutes = snapshot_->mutes;
    state.trims = snapshot_->trims;
    state.programs = snapshot_->programs;
    return state;
}

bool ShowStateTracker::IsPlaying() const {
    return snapshot_ && snapshot_->state == TransportState::kPlaying;
}

void ShowStateTracker::MoveTo(const Place& place) {
    place_ = place;
    ++changes_;
}

}  // namespace player
