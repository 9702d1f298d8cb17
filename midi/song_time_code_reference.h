#pragma once

#include <cstdint>
#include <map>

#include "midi/time_code_point.h"
#include "midi/vemo_midi_export.h"
#include "vemo_core/timeline.h"

/// Where one song's ticks lie on the show's time axis, as its tempos have them.
/// A value.
///
/// Owner:   a ShowTimeCodeReference.
/// Threads: one at a time; any number may read.
/// Lock:    none.
/// Units:   ticks of the song's resolution, seconds from the show's beginning.
/// Errors:  none.
class VEMO_MIDI_EXPORT SongTimeCodeReference {
public:
    /// No song: every tick is at 0 seconds.
    SongTimeCodeReference();
    /// resolution: ticks per quarter note.
    SongTimeCodeReference(double startSeconds, const TL::Timeline& timeline, unsigned int resolution);

    /// Ticks beyond the end go on at the last tempo. One before the first tempo
    /// lies where that begins; with no tempo at all, where the song ends.
    TimeCodePoint GetTimeCodeAtTickIndex(unsigned int tickIndex) const;
    double GetSongEndSeconds() const { return songEndSeconds_; }

private:
    std::map<std::uint32_t, TimeCodePoint> points_;
    double songEndSeconds_ = 0.0;
};
