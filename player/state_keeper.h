#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "player/playback_feed.h"
#include "player/show_state.h"
#include "player/show_state_tracker.h"
#include "player/transport.h"

namespace player {

/// Keeps the file beside a show that says where it stands, so that a player that
/// was cut off, by whatever, comes back to the bar that was played and to what the
/// operator had set.
///
/// Written when a bar begins and when a command has changed something, at most five
/// times a second; the file is replaced as a whole. A state that was there at the
/// start is kept until something is played or set: who forgets to resume has not
/// lost it. When the transport opens another show, its state goes beside that one;
/// a show without a file has none.
///
/// Owner:   the program. Feed and transport outlive it; the feed may be closed.
/// Threads: one of its own. Nothing that plays waits for it, and while music plays
///          it takes none of the host's locks.
/// Lock:    mutex_, a leaf, never held while a file is written.
/// Errors:  a state that could not be written is tried again once a second.
class StateKeeper {
public:
    /// On the keeper's thread, no lock held: a write has failed, with one line that
    /// says why. Once until one has succeeded. Must not close the keeper.
    using Failed = std::function<void(const std::string& reason)>;

    /// path: of the state of the show that is open. The place at which the transport
    /// stands now is taken for what path already says.
    StateKeeper(PlaybackFeed& feed, const Transport& transport, std::filesystem::path path, Failed failed = {});
    ~StateKeeper();
    StateKeeper(const StateKeeper&) = delete;
    StateKeeper& operator=(const StateKeeper&) = delete;

    /// Writes the last state, and nothing afterwards; waits for the disk. Any number
    /// of times.
    void Close();

private:
    using Clock = std::chrono::steady_clock;

    void Run();
    void Look();
    void FollowShow(const std::shared_ptr<const Show>& show);
    void WriteWhatChanged();
    void WriteLast();

    const Transport& transport_;
    const Failed failed_;
    const std::shared_ptr<PlaybackFeed::Subscription> records_;

    // The constructor's, then the keeper's thread's own.
    bool isStarted_ = false;
    std::filesystem::path path_;  // empty: the show has no file
    ShowStateTracker tracker_;
    std::optional<ShowState> saved_;  // what the file says
    bool playingIsSaved_ = false;
    std::uint64_t savedChanges_ = 0;  // of the tracker
    Clock::time_point nextWrite_{};
    bool isFailing_ = false;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool closing_ = false;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace player
