#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "player/playback_record.h"

namespace player {

/// Carries playback records from the engine's threads to whoever shows, counts or
/// writes them, without ever making the music wait.
///
/// Owner:   the program; it outlives host and subscribers.
/// Threads: Publish() on the clock thread and others, does not block; each
///          subscription is read by one thread of its own.
/// Lock:    one for the list of subscriptions, then one for each, leaves.
class PlaybackFeed {
public:
    /// What becomes of a reader that lags.
    enum class Lag {
        kDropOldest,  // its queue is made once, for ten minutes of clocks: the clock thread never allocates for it
        kGrow         // for virtual time, where hours pass in seconds: the queue grows to a million records first
    };

    /// A queue of records for one reader. Once it is full, the oldest records are
    /// dropped and counted.
    class Subscription {
    public:
        static constexpr std::size_t kUsualRecords = std::size_t{1} << 15;
        static constexpr std::size_t kMostRecords = std::size_t{1} << 20;

        explicit Subscription(Lag lag);
        /// Waits for the next record; nothing once the feed is closed and empty.
        std::optional<PlaybackRecord> Next();
        /// The same, but waits no longer than atMost, which may be 0.
        std::optional<PlaybackRecord> Next(std::chrono::milliseconds atMost);
        /// Closed, and nothing is left.
        bool IsOver() const;
        std::uint64_t GetDropped() const;

    private:
        friend class PlaybackFeed;
        void Push(const PlaybackRecord& record);
        std::optional<PlaybackRecord> Pop();  // under mutex_
        void Close();

        const Lag lag_;
        mutable std::mutex mutex_;
        std::condition_variable changed_;
        // Guarded by mutex_. A ring: first_ is the oldest of count_.
        std::vector<PlaybackRecord> ring_;
        std::size_t first_ = 0;
        std::size_t count_ = 0;
        std::uint64_t dropped_ = 0;
        bool closed_ = false;
    };

    explicit PlaybackFeed(Lag lag = Lag::kDropOldest);
    ~PlaybackFeed();
    PlaybackFeed(const PlaybackFeed&) = delete;
    PlaybackFeed& operator=(const PlaybackFeed&) = delete;

    std::shared_ptr<Subscription> Subscribe();
    void Publish(const PlaybackRecord& record);
    /// Readers get what is left, then nothing.
    void Close();

private:
    const Lag lag_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<Subscription>> subscriptions_;  // guarded by mutex_
};

}  // namespace player
