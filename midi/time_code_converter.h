#pragma once

#include <string>
#include <utility>

#include "midi/show_time_code_reference.h"
#include "midi/vemo_midi_export.h"
#include "vemo_core/show_data.h"

/// Turns ticks of the song that plays into seconds of the show's time code.
/// A value; a copy is at the same song.
///
/// Owner:   the host.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   ticks of the current song's resolution; seconds from the beginning
///          of the show.
/// Errors:  none. Before the first song everything is at 0 seconds.
class VEMO_MIDI_EXPORT TimeCodeConverter {
public:
    explicit TimeCodeConverter(const vemo_midi::ShowData& show);
    TimeCodeConverter(const TimeCodeConverter& other);
    TimeCodeConverter& operator=(const TimeCodeConverter& other);
    ~TimeCodeConverter();

    /// resolution: ticks per quarter note of that song.
    void UpdateToNewSong(const std::string& songKey, unsigned int resolution);
    double ConvertTickIndexToSeconds(unsigned int tickIndex) const;
    /// At this tick and one MIDI clock on: the span that begins with this clock.
    std::pair<double, double> GetTimeCodeSecondsPair(unsigned int tickIndex) const;

private:
    ShowTimeCodeReference show_;
    const SongTimeCodeReference* song_ = nullptr;  // in show_; null before the first song
    unsigned int resolution_ = 0;
    std::string songKey_;  // by which a copy finds its own song
};
