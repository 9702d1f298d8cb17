#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory_resource>
#include <mutex>
#include <utility>
#include <vector>

#include "midi/clock_state.h"
#include "midi/midi_clock.h"

/// The clock without its timer: what it means to be armed, which change takes
/// effect at which clock, and where it pauses. A subclass supplies the timer (or
/// virtual time) by SetClockTimer() and StartClock(), and calls AdvanceClock()
/// once per clock.
///
/// Owner:   as MidiClock.
/// Threads: any for the public operations; AdvanceClock() from the subclass's
///          clock thread or timer. In the steady state a clock allocates nothing.
/// Lock:    GetMutex(), then the clock state's; the count of clocks in flight has
///          a leaf of its own. The callback runs with none of them.
/// Units:   as MidiClock.
/// Errors:  a change that comes too late is dropped with a line on the console.
///          std::logic_error "Not implemented" and "Not implemented." from what
///          only a conducted clock would have.
class VEMO_MIDI_EXPORT StandardMidiClock : public MidiClock {
public:
    StandardMidiClock();
    ~StandardMidiClock() override;

    /// At once, armed or not.
    void SetTicksPerClock(unsigned int ticksPerClock) override;
    /// The two below: while disarmed, kept for the next ArmPlayback(). Valid at
    /// the very tick where the clock stands is taken but never comes: only a tick
    /// that a clock moves to is looked up.
    void SetClocksPerClick(int clocksPerClick, unsigned int validAt) override;
    void SetClockTime(double clockTime, unsigned int validAt) override;
    /// While disarmed it only drops what was kept for the next ArmPlayback().
    void SetTickIndex(unsigned int tickIndex, int clockNumber, unsigned int ticksPerClock, int clocksPerClick,
                      double clockTime, unsigned int validAt) override;
    /// Pauses before the clock at that tick; ContinuousMode() goes on from there.
    void SetCaesura(unsigned int caesuraTickIndex, double clockTime, int clocksPerClick) override;
    /// Drops the schedule and the caesura and ends what runs: no clock comes
    /// until ContinuousMode().
    void ArmPlayback(unsigned int ticksPerClock, int clocksPerClick, double clockTime, unsigned int tickIndex,
                     int clockNumber) override;
    /// The clock after this one does not come; one already on its way may.
    void DisarmPlayback() override;
    /// Starts the clock; while it runs, starts it again.
    void ContinuousMode() override;
    void ConductBeat() override;
    void SetConductorClickTimerCallback(TimerCallback callback, void* userData) override;
    void SetDownbeatTimerCallback(TimerCallback callback, void* userData) override;
    bool GetPlaybackIsArmed() override;

    /// Returns when no clock is with its callback. After DisarmPlayback() none
    /// comes before the next arming. Never from the callback, nor with a lock held
    /// that the callback takes.
    void WaitForClocksInFlight();

protected:
    /// The arming and the start that a chain of clocks belongs to.
    struct Run {
        std::uint64_t arming = 0;
        std::uint64_t start = 0;
        bool operator==(const Run&) const = default;
    };

    /// Schedules the next clock, clockTime seconds after the one before. Called
    /// by AdvanceClock() with GetMutex() held.
    virtual void SetClockTimer(double clockTime) = 0;
    /// Has the first clock emitted, soon and on the clock's thread. Called with
    /// no lock held.
    virtual void StartClock() = 0;

    /// Emits one clock. False: no further one was scheduled, because playback is
    /// disarmed, the caesura is reached, or the host armed or started anew
    /// meanwhile, which leaves everything as the host then put it. Whatever the
    /// callback throws passes, with the clock not advanced.
    bool AdvanceClock();
    /// The same for a clock that was scheduled under that run: no clock where
    /// another has taken its place.
    bool AdvanceClock(const Run& run);

    /// The run in force.
    Run GetRun() const;
    /// A new start: chains that run are not continued.
    Run BeginRun();

    ClockState clockState_;

private:
    class Flight;

    bool IsTooLate_(const char* warning, unsigned int validAt) const;

    // Guarded by GetMutex().
    // Changes come and go with every click, on the clock thread: the nodes are
    // taken from and given back to the pool.
    std::pmr::unsynchronized_pool_resource pendingMemory_;
    std::pmr::map<unsigned int, ClockState> pendingClockStates_;
    Run run_;
    bool playbackIsArmed_ = false;
    bool caesuraIsSet_ = false;
    unsigned int caesuraTickIndex_ = 0;
    double caesuraClockTime_ = 0;
    int caesuraClocksPerClick_ = 0;
    std::vector<std::pair<int, unsigned int>> deferredClocksPerClick_;
    std::vector<std::pair<double, unsigned int>> deferredClockTimes_;

    std::mutex flightMutex_;
    std::condition_variable landed_;
    int clocksInFlight_ = 0;  // guarded by flightMutex_
};
