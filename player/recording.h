#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <vector>

#include "player/atomic_file.h"

namespace player {

/// Everything that leaves on the output, as a standard MIDI file of format 0 with
/// 5,000 ticks a quarter note at 120 beats a minute: a tick is 0.1 ms.
///
/// Owner:   the program.
/// Threads: Add() on whichever thread sends; Commit() after playing.
/// Lock:    mutex_, a leaf.
/// Units:   times of the host's clock.
/// Errors:  zell::IoError where the file cannot be written, already from the
///          constructor.
class Recording {
public:
    explicit Recording(const std::filesystem::path& target);
    ~Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    void Add(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time);
    /// Writes the file. What was sent before the first clock is put at time 0; without
    /// a clock the first message is there.
    void Commit(std::optional<std::chrono::nanoseconds> firstClock);

private:
    struct Message {
        std::chrono::nanoseconds time;
        std::uint8_t bytes[3];
        std::uint8_t count;
    };

    AtomicFile file_;
    std::mutex mutex_;
    std::vector<Message> messages_;  // guarded by mutex_
};

}  // namespace player
