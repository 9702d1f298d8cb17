#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "midi/vemo_midi_export.h"

/// The MIDI clock as the output and the tracker see it: 24 pulses per quarter
/// note, each of which plays one cycle buffer. No clock byte goes out on a wire.
///
/// Owner:   the host; it outlives every output and tracker that drives it.
/// Threads: any, except where an operation says otherwise.
/// Lock:    GetMutex(), recursive, taken by every operation that touches clock
///          data; the callback has a lock of its own, a leaf, that is not held
///          while the callback runs.
/// Units:   ticks of the song; clock time in seconds per MIDI clock; valid-at is
///          the tick index from which a change holds, 0 meaning at once.
class VEMO_MIDI_EXPORT MidiClock {
public:
    using TimerCallback = void (*)(void*);

    MidiClock();
    virtual ~MidiClock();
    MidiClock(const MidiClock&) = delete;
    MidiClock& operator=(const MidiClock&) = delete;

    virtual void SetTicksPerClock(unsigned int ticksPerClock) = 0;
    virtual void SetClocksPerClick(int clocksPerClick, unsigned int validAt) = 0;
    virtual void SetClockTime(double clockTime, unsigned int validAt) = 0;
    virtual void SetTickIndex(unsigned int tickIndex, int clockNumber, unsigned int ticksPerClock, int clocksPerClick,
                              double clockTime, unsigned int validAt) = 0;
    virtual void SetCaesura(unsigned int caesuraTickIndex, double clockTime, int clocksPerClick) = 0;
    /// Mind the order, which differs from SetTickIndex.
    virtual void ArmPlayback(unsigned int ticksPerClock, int clocksPerClick, double clockTime, unsigned int tickIndex,
                             int clockNumber) = 0;
    virtual void DisarmPlayback() = 0;
    virtual void ContinuousMode() = 0;
    virtual void ConductBeat() = 0;
    virtual void SetConductorClickTimerCallback(TimerCallback callback, void* userData) = 0;
    virtual void SetDownbeatTimerCallback(TimerCallback callback, void* userData) = 0;
    virtual bool GetPlaybackIsArmed() = 0;

    /// Called once per clock, on the clock's thread and with no lock of the clock
    /// held, with the clicks per minute of that clock. A clock already on its way
    /// may still call the callback before.
    void SetMidiClockCallback(std::function<void(double beatsPerMinute)> callback);
    /// std::bad_function_call while no callback is set.
    void DoMidiClockCallback(double beatsPerMinute);

    std::recursive_mutex& GetMutex() const { return mutex_; }

private:
    mutable std::recursive_mutex mutex_;
    std::mutex callbackMutex_;
    // Guarded by callbackMutex_. Shared, so that a clock takes it without
    // allocating and it outlives the call even when another replaces it.
    std::shared_ptr<const std::function<void(double)>> callback_;
};
