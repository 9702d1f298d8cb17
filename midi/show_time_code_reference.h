#pragma once

#include <map>
#include <string>

#include "midi/song_time_code_reference.h"
#include "midi/vemo_midi_export.h"
#include "vemo_core/show_data.h"

/// Lays the songs of a show end to end on one time axis, in the show's order.
/// A value.
///
/// Owner:   a TimeCodeConverter.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   seconds from the beginning of the first song.
/// Errors:  none.
class VEMO_MIDI_EXPORT ShowTimeCodeReference {
public:
    explicit ShowTimeCodeReference(const vemo_midi::ShowData& show);

    /// The song's own, for as long as this object lives. A key that the show
    /// lacks gets an empty one.
    SongTimeCodeReference& Get(const std::string& songKey);

private:
    std::map<std::string, SongTimeCodeReference> songs_;
};
