#pragma once

#include <mutex>

#include "midi/how_to_play.h"
#include "midi/midi_clock.h"
#include "midi/vemo_midi_export.h"

/// The position tracker bound to the clock that plays the song: every change of
/// tempo and of click that an advance crosses goes to the clock, to take effect
/// at the tick advanced to. A seek sends nothing.
///
/// Owner:   as HowToPlay; the clock outlives it, and copies share it.
/// Threads: as HowToPlay.
/// Lock:    none of its own. AdvanceToTickIndexWithLock() is for callers that
///          hold theirs: the clock is never entered with it.
/// Units:   as HowToPlay.
/// Errors:  as HowToPlay, but that without a song nothing moves either: there is no
///          tempo to tell. A change that comes too late is the clock's to report.
class VEMO_MIDI_EXPORT HowToPlayWithMidiClock : public HowToPlay {
public:
    HowToPlayWithMidiClock(UserControls& userControls, MidiClock& midiClock);
    HowToPlayWithMidiClock(const HowToPlayWithMidiClock& other);
    HowToPlayWithMidiClock(HowToPlayWithMidiClock&& other) noexcept;
    ~HowToPlayWithMidiClock();

    /// An advance to tick 0 changes the clock at once.
    void AdvanceToTickIndex(unsigned int tickIndex) override;
    /// lock is released while the clock is called, and held again on return, also
    /// by an exception. std::system_error where there is something to tell the
    /// clock and the caller does not own it.
    void AdvanceToTickIndexWithLock(unsigned int tickIndex, std::unique_lock<std::mutex>& lock);
    /// Also gives the clock the current clock time, at once.
    void SetHighSpeed() override;

    /// With which clock time and clocks per click the music goes on at the first
    /// beat from that tick on; either pointer may be null. std::out_of_range where
    /// no beat follows.
    void GetCaesuraResumeParams(unsigned int tickIndex, double* clockTime, int* clocksPerClick);

private:
    MidiClock& midiClock_;
};
