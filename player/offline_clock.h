#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "midi/standard_midi_clock.h"

namespace player {

/// The MIDI clock in virtual time: as fast as the machine goes, every clock at its
/// ideal time.
///
/// Owner:   the playback host; it outlives the output that it drives.
/// Threads: one driver thread calls the clocks, with no lock held; GetTime() on
///          any thread.
/// Lock:    mutex_, a leaf.
/// Units:   virtual time since construction.
/// Errors:  what a clock throws is logged and ends that chain of clocks.
class OfflineClock : public StandardMidiClock {
public:
    /// beforeClock runs on the driver thread before each clock, with no lock held.
    /// It returns when the clock has something to play, and may arm, disarm and
    /// start the clock meanwhile.
    explicit OfflineClock(std::function<void()> beforeClock);
    ~OfflineClock() override;

    std::chrono::nanoseconds GetTime() const;

protected:
    void SetClockTimer(double clockTime) override;
    void StartClock() override;

private:
    void Drive();

    const std::function<void()> beforeClock_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_. Seconds as a double would gather error over a season.
    std::chrono::nanoseconds now_{0};
    std::chrono::nanoseconds due_{0};
    bool isDue_ = false;
    Run run_;
    bool exit_ = false;
    std::thread driver_;
};

}  // namespace player
