#pragma once

#include "midi/midi_stream_collection.h"

/// The streams of a show with the songs' own default programs, as
/// QuorvelMidiStream; mutes end with the song.
///
/// Owner, Threads, Lock, Units, Errors: as MidiStreamCollection.
class VEMO_MIDI_EXPORT QuorvelMidiStreamCollection : public MidiStreamCollection {
public:
    /// Begins to load.
    explicit QuorvelMidiStreamCollection(const vemo_midi::ShowData& showData);
    ~QuorvelMidiStreamCollection() override;

protected:
    QuorvelMidiStreamCollection(const vemo_midi::ShowData& showData, LeftToDerivedForm);

    MidiStream* CreateMidiStream(const vemo_midi::SongData& songData) override;
};
