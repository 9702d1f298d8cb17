#include "midi/quorvel_midi_stream.h"

namespace {

// Port 0, channel 10 as musicians count it. The same channel of another port may
// carry anything, so only this one id counts as percussion.
constexpr unsigned short kPercussionTrackId = 9;

}  // namespace

QuorvelMidiStream::QuorvelMidiStream(const vemo_midi::SongData& songData) : MidiStream(songData) {
    for (const auto& [id, track] : songData_.GetVoiceData()) {
        trackNames_[id] = track.GetTrackName();
        defaultProgramChanges_[id] = track.GetDefaultProgramChange();
    }
    currentProgramChanges_ = defaultProgramChanges_;
    InitializePersistenceData();
}

QuorvelMidiStream::~QuorvelMidiStream() = default;

void QuorvelMidiStream::SetPersistentTrackRange(PersistentMIDI& persistentMidi, const vemo_midi::VoiceTrack& track) {
    if (track.GetTrackId() == kPercussionTrackId)
        persistentMidi.SetRange({255, 255});
    else
        persistentMidi.SetRange({0, 127});
}
