#pragma once

#include <mutex>

#include "midi/vemo_midi_export.h"

/// Where the MIDI clock stands: the place in the song of the clock that comes
/// next, and how long a clock lasts. Also a change of some of these: every field
/// knows whether it was ever set, and assigning copies those alone.
///
/// Owner:   a clock holds its own and its scheduled changes.
/// Threads: any. Does not block.
/// Lock:    GetMutex(), recursive, for callers that read several fields as one;
///          assigning takes both states' locks without a deadlock.
/// Units:   ticks; clock numbers from 0 within a click; seconds per clock.
/// Errors:  none; a field that was never set reads 0.
class VEMO_MIDI_EXPORT ClockState {
public:
    ClockState();
    ClockState(unsigned int tickIndex, int clockNumber, unsigned int ticksPerClock, int clocksPerClick,
               double clockTime);
    ~ClockState();
    /// A merge: what is not set in other keeps its value here.
    ClockState& operator=(const ClockState& other);

    unsigned int GetTickIndex() const;
    int GetClockNumber() const;
    unsigned int GetTicksPerClock() const;
    int GetClocksPerClick() const;
    double GetClockTime() const;
    void SetTickIndex(unsigned int tickIndex);
    void SetClockNumber(int clockNumber);
    void SetTicksPerClock(unsigned int ticksPerClock);
    void SetClocksPerClick(int clocksPerClick);
    void SetClockTime(double clockTime);

    /// Clicks per minute; 0 where clicks have no length.
    double GetBeatsPerMinute() const;
    /// One clock on.
    void AdvanceClock();

    std::recursive_mutex& GetMutex() const { return mutex_; }

private:
    mutable std::recursive_mutex mutex_;
    // Guarded by mutex_.
    unsigned int tickIndex_ = 0;
    int clockNumber_ = 0;
    unsigned int ticksPerClock_ = 0;
    int clocksPerClick_ = 0;
    double clockTime_ = 0;
    bool tickIndexIsSet_ = false;
    bool clockNumberIsSet_ = false;
    bool ticksPerClockIsSet_ = false;
    bool clocksPerClickIsSet_ = false;
    bool clockTimeIsSet_ = false;
};
