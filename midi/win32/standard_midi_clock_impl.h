#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "midi/standard_midi_clock.h"
#include "midi/vemo_midi_export.h"
#include "midi/win32/midi_clock_chrono.h"

/// The clock in real time: a thread emits the first clock of each start, and
/// every clock sets a one-shot multimedia timer for the next, so that a chain of
/// timers runs until the clock is disarmed or pauses.
///
/// Owner:   the host. The destructor ends the chain and waits for its last timer,
///          five seconds at the most; never with a lock held that the per-clock
///          callback takes, and never from that callback.
/// Threads: as StandardMidiClock; clocks come from the clock thread (the first)
///          and from the platform's timer thread (all others).
/// Lock:    GetMutex(), then the start mutex or the list of timers, both leaves.
/// Units:   seconds; timers in whole milliseconds, at least one.
/// Errors:  a clock that fails (a throwing callback, a timer that cannot be set)
///          is logged and ends its chain. On the clock thread it ends the thread
///          too: that clock never starts again.
class VEMO_MIDI_EXPORT StandardMidiClockImpl : public StandardMidiClock {
public:
    StandardMidiClockImpl();
    ~StandardMidiClockImpl() override;

    /// The clock thread's body.
    void RunLoop();
    /// One clock of the run in force, as a timer of it would emit it.
    void DoTimerCallback();
    /// The same for the platform's timer thread: what fails is logged.
    void DoTimerCallbackFromThread();

protected:
    void SetClockTimer(double clockTime) override;
    void StartClock() override;

private:
    class Timers;

    /// One clock of that run; ends its chain where it is the last.
    void DoTimerCallback(const Run& run);
    void DoTimerCallbackFromThread(const Run& run);

    bool running_ = true;  // guarded by GetMutex()
    MidiClockChrono chrono_;

    std::mutex startMutex_;
    std::condition_variable startCondition_;
    // Guarded by startMutex_.
    bool startIsPending_ = false;
    std::uint64_t startArming_ = 0;  // the arming that the start was meant for

    std::thread clockThread_;
};
