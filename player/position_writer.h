#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "player/playback_feed.h"
#include "player/position_reporter.h"
#include "player/song_source.h"

namespace player {

/// Writes the position to standard output as it goes, on a thread that the music
/// never waits for: as JSON, one object a line, or as one line for a person that
/// follows what is heard.
///
/// Owner:   the program; the songs outlive it. Standard output may block for ever:
///          then Finish() says so, and the process must be left without running
///          destructors.
/// Threads: one of its own.
class PositionWriter {
public:
    enum class Form {
        kJson,
        kLine  // follows the delayed downbeats; in virtual time, songs and markers alone
    };
    enum class Time { kReal, kVirtual };

    PositionWriter(Form form, Time time, const SongSource& songs, PlaybackFeed& feed);
    ~PositionWriter();
    PositionWriter(const PositionWriter&) = delete;
    PositionWriter& operator=(const PositionWriter&) = delete;

    /// After the feed was closed: waits until all is written; false when standard
    /// output has taken nothing for so long.
    bool Finish(std::chrono::milliseconds patience);

private:
    void Run();
    void Take(const PlaybackRecord& record, PositionReporter& reporter);
    void Show(const PositionReporter::Event& event);
    void Write(const std::string& text);

    const Form form_;
    const bool isOffline_;
    const SongSource& songs_;
    const std::shared_ptr<PlaybackFeed::Subscription> records_;
    std::deque<PlaybackRecord> clicks_;  // played, and not yet heard
    bool lineIsOpen_ = false;
    bool isBroken_ = false;

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::uint64_t written_ = 0;
    bool finished_ = false;
    std::thread thread_;
};

}  // namespace player
