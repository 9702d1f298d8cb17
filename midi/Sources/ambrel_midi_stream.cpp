#include "midi/ambrel_midi_stream.h"

namespace {

constexpr unsigned char kControlChange = 0xB0;
constexpr unsigned char kChannelVolume = 7;

}  // namespace

AmbrelMidiStream::AmbrelMidiStream(const vemo_midi::SongData& songData, MidiVolumeScaler& volumeScaler)
    : MidiStream(songData), volumeScaler_(volumeScaler) {
    for (const auto& [id, track] : songData_.GetVoiceData()) {
        trackNames_[id] = track.GetTrackName();
        currentProgramChanges_[id] = 0;
    }
    InitializePersistenceData();
}

AmbrelMidiStream::~AmbrelMidiStream() = default;

void AmbrelMidiStream::ScaleVolumeCc(unsigned short trackId, vemo_midi::VoiceEvent* event) {
    auto& message = event->message;
    if ((message.status & 0xF0) == kControlChange && message.data1 == kChannelVolume)
        message.data2 = volumeScaler_.GetScaledMidiValue(trackId, message.data2);
}

void AmbrelMidiStream::SendPersistentVolumeForScaledTracks_(MidiBuffer& buffer) {
    if (!volumeScaler_.GetHasRecentlyAffectedTrackIds())
        return;
    for (const unsigned short id : volumeScaler_.GetRecentlyAffectedTrackIds()) {
        const auto& ccs = persistentMidi_[id].GetCCs();
        const auto volume = ccs.find(kChannelVolume);
        if (volume == ccs.end()) {
            Send_(id, vemo_midi::VoiceEvent(0, kControlChange, id, kChannelVolume, volumeScaler_.GetScale(id)), buffer);
            continue;
        }
        vemo_midi::VoiceEvent scaled = volume->second;
        ScaleVolumeCc(id, &scaled);
        Send_(id, scaled, buffer);
    }
}
