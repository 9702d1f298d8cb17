#pragma once

#include "midi/midi_stream.h"

/// The stream of a song with its own default programs, in which everything follows
/// a transposition but the percussion on the tenth channel of the first port.
///
/// Owner, Threads, Lock, Units, Errors: as MidiStream.
class VEMO_MIDI_EXPORT QuorvelMidiStream : public MidiStream {
public:
    explicit QuorvelMidiStream(const vemo_midi::SongData& songData);
    ~QuorvelMidiStream() override;
    QuorvelMidiStream(const QuorvelMidiStream&) = default;
    QuorvelMidiStream& operator=(const QuorvelMidiStream&) = default;

    void SetPersistentTrackRange(PersistentMIDI& persistentMidi, const vemo_midi::VoiceTrack& track) override;
};
