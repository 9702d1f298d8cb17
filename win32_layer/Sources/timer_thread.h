#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

namespace win32_layer {

/// Runs the one-shot timer callbacks, one after another, each due at an absolute
/// time of the steady clock.
///
/// Owner:   the process; Instance(). Its thread starts with it.
/// Threads: any. The callbacks run on the timer thread; a slow one makes the
///          next ones late.
/// Lock:    mutex_, a leaf: no callback runs under it.
/// Units:   milliseconds of delay.
class TimerThread {
public:
    struct Totals {
        int periods = 0;  // begun less ended
        int outstanding = 0;
        std::uint64_t set = 0;
    };

    static TimerThread& Instance();

    /// Never 0. Timers that are due at the same time run in the order of setting.
    UINT Set(std::chrono::milliseconds delay, LPTIMECALLBACK callback, DWORD_PTR user);
    /// False when that timer has run, runs or never was. Waits for nothing.
    bool Kill(UINT timerId);
    /// Blocks until no timer is outstanding or running, at most so long.
    bool WaitUntilIdle(std::chrono::milliseconds atMost);

    void BeginPeriod();
    /// False when none was begun; counted nevertheless, so that the fault shows.
    bool EndPeriod();

    Totals GetTotals() const;
    /// Counts the timers that are set from 0, and the periods where no timer runs.
    void Reset();

private:
    using Time = std::chrono::steady_clock::time_point;
    struct Timer {
        Time due;
        std::uint64_t number;
        UINT id;
        LPTIMECALLBACK callback;
        DWORD_PTR user;
    };

    TimerThread();
    void Run();
    static bool IsLater(const Timer& left, const Timer& right);

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::vector<Timer> timers_;  // a heap, the next one first
    std::uint64_t lastNumber_ = 0;
    Totals totals_;
};

}  // namespace win32_layer
