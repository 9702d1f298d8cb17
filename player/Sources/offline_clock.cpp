#include "player/offline_clock.h"

#include <cmath>
#include <exception>
#include <utility>

#include "vemo_core/exception_log.h"
#include "zell/thread_names.h"

namespace player {

namespace {

constexpr char kSource[] = "player/Sources/offline_clock";

}  // namespace

OfflineClock::OfflineClock(std::function<void()> beforeClock) : beforeClock_(std::move(beforeClock)) {
    driver_ = std::thread([this] { Drive(); });
}

OfflineClock::~OfflineClock() {
    {
        std::lock_guard lock(mutex_);
        exit_ = true;
        changed_.notify_all();
    }
    driver_.join();
}

std::chrono::nanoseconds OfflineClock::GetTime() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void OfflineClock::SetClockTimer(double clockTime) {
    // A clock that ended the song leads to no further one: the next song starts at
    // its time, without a gap.
    if (!GetPlaybackIsArmed())
        return;
    const Run run = GetRun();
    const auto length = std::chrono::nanoseconds(std::llround(clockTime * 1e9));
    std::lock_guard lock(mutex_);
    run_ = run;
    due_ = now_ + length;
    isDue_ = true;
}

void OfflineClock::StartClock() {
    const Run run = GetRun();
    std::lock_guard lock(mutex_);
    run_ = run;
    // A start in place of a clock that was still to come takes that clock's time;
    // one after a song's end goes on where the song ended.
    if (!isDue_)
        due_ = now_;
    isDue_ = true;
    changed_.notify_all();
}

void OfflineClock::Drive() {
    zell::threadNames.SetNameOfCurrentThread("offline_clock");
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isDue_ || exit_; });
            if (exit_)
                return;
        }
        try {
            beforeClock_();
            Run run;
            {
                std::lock_guard lock(mutex_);
                if (!std::exchange(isDue_, false))
                    continue;
                now_ = due_;
                run = run_;
            }
            AdvanceClock(run);
        } catch (const std::exception& error) {
            VemoLogException(error.what(), kSource, __LINE__);
        } catch (...) {
            VemoLogException("Unknown exception.", kSource, __LINE__);
        }
    }
}

}  // namespace player
