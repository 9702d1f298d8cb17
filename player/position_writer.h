#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "player/current_show.h"
#include "player/playback_feed.h"
#include "player/position_reporter.h"

namespace player {

/// Writes the position to standard output as it goes, on a thread that the music
/// never waits for: as JSON, one object a line, or as one line for a person that
/// follows what is heard.
///
/// Owner:   the program; the show outlives it. Standard output may block for ever:
///          then Finish() says so, and the process must be left without running
///          destructors.
/// Threads: one of its own.
class PositionWriter {
public:
    enum class Form {
        kJson,
        kLine  // follows what is heard; in virtual time, songs and markers alone
    };
    enum class Time { kReal, kVirtual };

    PositionWriter(Form form, Time time, const CurrentShow& show, PlaybackFeed& feed);
    ~PositionWriter();
    PositionWriter(const PositionWriter&) = delete;
    PositionWriter& operator=(const PositionWriter&) = delete;

    /// After the feed was closed: waits until all is written; false when standard
    /// output has taken nothing for so long.
    bool Finish(std::chrono::milliseconds patience);

private:
    void Run();
    void FollowRecords(PositionReporter& reporter);
    void FollowWhatIsHeard(PositionReporter& reporter);
    void ShowHeard(const PlaybackRecord& record, PositionReporter& reporter);
    void Show(const PositionReporter::Event& event);
    void ShowLine(std::string line);
    void Write(const std::string& text);

    const Form form_;
    const bool isOffline_;
    const CurrentShow& show_;
    const std::shared_ptr<PlaybackFeed::Subscription> records_;
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
