#include "zell/Sources/console.h"

#include <thread>
#include <utility>

#include "zell/Sources/standard_output.h"
#include "zell/format.h"

namespace zell {

Console& Console::Get() {
    static Console& console = *new Console;
    return console;
}

void Console::Write(std::string text) noexcept {
    const std::lock_guard lock(mutex_);
    try {
        if (!started_) {
            // Detached: nobody could join a thread whose write never returns.
            std::thread(&Console::Run, this).detach();
            started_ = true;
        }
        const std::size_t size = text.size();
        if (size > kMostBytes - unwrittenBytes_) {
            ++dropped_;
            return;
        }
        queue_.push_back(std::move(text));
        unwrittenBytes_ += size;
    } catch (...) {
        ++dropped_;
        return;
    }
    queued_.notify_one();
}

bool Console::Flush(std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    // Where the system has already ended the other threads of a process that
    // exits, one of them may have taken the lock with it.
    std::unique_lock lock(mutex_, std::try_to_lock);
    while (!lock.owns_lock()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        lock.try_lock();
    }
    return written_.wait_until(lock, deadline, [this] { return unwrittenBytes_ == 0; });
}

std::uint64_t Console::GetDroppedCount() {
    const std::lock_guard lock(mutex_);
    return dropped_;
}

void Console::Run() {
    std::vector<std::string> taken;
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            queued_.wait(lock, [this] { return !queue_.empty(); });
            taken.swap(queue_);
        }
        std::size_t size = 0;
        for (const std::string& text : taken) {
            WriteToStandardOutput(text);
            size += text.size();
        }
        taken.clear();
        std::uint64_t newlyDropped = 0;
        {
            const std::lock_guard lock(mutex_);
            if (queue_.empty())  // what is queued still came before what was dropped
                newlyDropped = dropped_ - std::exchange(droppedReported_, dropped_);
        }
        if (newlyDropped > 0)
            WriteToStandardOutput(
                format("WARNING: %u console messages were lost while standard output was stuck.\n", newlyDropped));
        const std::lock_guard lock(mutex_);
        unwrittenBytes_ -= size;
        written_.notify_all();
    }
}

namespace {

const struct FlushAtExit {
    ~FlushAtExit() { Console::Get().Flush(std::chrono::seconds(1)); }
} flushAtExit;

}  // namespace

}  // namespace zell
