#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace zell {

/// Carries messages to standard output on a thread of its own, so that a
/// terminal which somebody has halted does not halt the music.
///
/// Owner:   the process; never destroyed, because engine threads may report
///          while the process ends and the writer may be stuck for ever.
/// Threads: any. Write() does not block.
/// Lock:    mutex_, a leaf, not held while writing.
/// Errors:  none leave it; a text that cannot be queued is dropped and counted.
class Console {
public:
    static Console& Get();

    void Write(std::string text) noexcept;
    /// Waits, no longer than so, until everything is written; false when it is not.
    bool Flush(std::chrono::milliseconds patience);
    std::uint64_t GetDroppedCount();

private:
    static constexpr std::size_t kMostBytes = 1 << 20;

    void Run();

    std::mutex mutex_;
    std::condition_variable queued_;
    std::condition_variable written_;
    std::vector<std::string> queue_;  // under mutex_, as all below
    std::size_t unwrittenBytes_ = 0;  // queued, or taken by the writer
    std::uint64_t dropped_ = 0;
    std::uint64_t droppedReported_ = 0;
    bool started_ = false;
};

}  // namespace zell
