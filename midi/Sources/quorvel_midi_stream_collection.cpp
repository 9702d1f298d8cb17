#include "midi/quorvel_midi_stream_collection.h"

#include "midi/quorvel_midi_stream.h"

QuorvelMidiStreamCollection::QuorvelMidiStreamCollection(const vemo_midi::ShowData& showData)
    : QuorvelMidiStreamCollection(showData, LeftToDerivedForm()) {
    StartLoadStreamsThread();
}

QuorvelMidiStreamCollection::QuorvelMidiStreamCollection(const vemo_midi::ShowData& showData, LeftToDerivedForm)
    : MidiStreamCollection(showData) {}

QuorvelMidiStreamCollection::~QuorvelMidiStreamCollection() {
    // Here and not only in the base, where the thread would meet a CreateMidiStream() that is gone.
    StopLoading();
}

MidiStream* QuorvelMidiStreamCollection::CreateMidiStream(const vemo_midi::SongData& songData) {
    return new QuorvelMidiStream(songData);
}
