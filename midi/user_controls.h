#pragma once

#include <mutex>

#include "midi/vemo_midi_export.h"

/// What the user steers while the show runs: a factor on the tempo and a
/// transposition. The trackers read it whenever they compute, so a change holds
/// from the next computation on.
///
/// Owner:   the host; it outlives the trackers that read it.
/// Threads: any. Does not block.
/// Lock:    mutex_, a leaf.
/// Units:   the tempo scale is a factor, 1.0 as written, stored without a limit
///          (the tracker clamps it); semitones.
/// Errors:  none.
class VEMO_MIDI_EXPORT UserControls {
public:
    UserControls();
    ~UserControls();

    double GetTempoScale() const;
    void SetTempoScale(double tempoScale);
    /// Multiply by 1.01 and 0.99, and return the new scale: up and down again is
    /// not quite where it began.
    double IncreaseTempo();
    double DecreaseTempo();

    int GetTransposition() const;
    void SetTransposition(int transposition);
    /// Whether the transposition became another since the last call: of several
    /// readers one sees it.
    bool GetTranspositionChanged();

private:
    mutable std::mutex mutex_;
    // Guarded by mutex_.
    double tempoScale_ = 1.0;
    int transposition_ = 0;
    bool transpositionChanged_ = false;
};
