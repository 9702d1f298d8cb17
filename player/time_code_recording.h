#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <vector>

#include "player/atomic_file.h"

namespace player {

/// One message of a time code, and when it came.
///
/// Units: seconds from the first clock of a recording, or on the steady clock.
struct TimeCodeMessage {
    double seconds = 0;
    std::vector<std::uint8_t> bytes;
};

/// What a TimeCodeRecording has written. std::invalid_argument with one line that names
/// file, line and reason.
std::vector<TimeCodeMessage> ReadTimeCodeRecording(const std::filesystem::path& path);

/// Everything that leaves on the output of time code, a JSON object a line:
/// {"seconds":12.345678,"bytes":"F1 25"}. A standard MIDI file holds such messages only
/// as escapes that its readers refuse.
///
/// Owner:   the program.
/// Threads: Add() on whichever thread sends; Commit() after playing.
/// Lock:    mutex_, a leaf.
/// Units:   seconds from the first clock; what was sent before it has times below 0.
/// Errors:  zell::IoError where the file cannot be written, already from the constructor.
class TimeCodeRecording {
public:
    explicit TimeCodeRecording(const std::filesystem::path& target);
    ~TimeCodeRecording();
    TimeCodeRecording(const TimeCodeRecording&) = delete;
    TimeCodeRecording& operator=(const TimeCodeRecording&) = delete;

    void Add(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time);
    /// Writes the file. Without a clock the first message is at time 0.
    void Commit(std::optional<std::chrono::nanoseconds> firstClock);

private:
    static constexpr std::size_t kMostBytes = 10;
    struct Message {
        std::chrono::nanoseconds time;
        std::array<std::uint8_t, kMostBytes> bytes;
        std::uint8_t count;
    };

    AtomicFile file_;
    std::mutex mutex_;
    std::deque<Message> messages_;  // guarded by mutex_
};

}  // namespace player
