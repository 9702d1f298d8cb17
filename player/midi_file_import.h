#pragma once

#include "player/imported_song.h"
#include "player/midi_file.h"
#include "player/song_additions.h"

namespace player {

/// Makes a song of a standard MIDI file, so that the engine plays it as it was
/// written and a seek into it sounds right.
///
/// One voice track for each MIDI channel in use: its id is the channel, on port 0;
/// its name is that of the first file track that has a name and plays this channel
/// only, else "Channel 10"; its default program is its first program change, else
/// 0. Events of one channel at one tick keep the file's order, of format 1 that of
/// its tracks. Tempos, meters, keys and markers become the timeline and the song
/// log; of several at one tick the last one holds, and markers are joined. The song
/// ends where its last track ends.
///
/// The resolution becomes a multiple of 24, the clocks of a quarter note: all ticks
/// times the smallest factor that does it, or 960 with rounded ticks where that
/// would pass 16 bits. SMPTE time becomes a fixed tempo of about 120 quarter notes
/// a minute, and the file's own tempos, which mean nothing in it, are left out.
///
/// songNumber is the song's number in the show.
///
/// Threads: any.
/// Errors:  MidiFileError for what no song can hold: a division of 0 or of an
///          unknown frame rate, a tempo of 0, a meter of no beats or of beats
///          shorter than 1/64, a song too long for 32-bit ticks or of more than
///          100,000 beats. std::invalid_argument for additions that do not fit the
///          song, of a file that has no such fault.
ImportedSong ImportMidiFile(const MidiFile& file, int songNumber, const SongAdditions& additions = {});

}  // namespace player
