#pragma once

#include "midi/midi_stream.h"
#include "midi/midi_volume_scaler.h"

/// The stream of a song whose tracks the operator trims in volume: every channel
/// volume leaves scaled, and a new trim leaves with the next plain cycle.
///
/// Owner:   as MidiStream; the scaler outlives the stream and every copy of it.
/// Threads, Lock, Units, Errors: as MidiStream. The scaler's lock is taken for each
///          look at it, inside the buffer's.
class VEMO_MIDI_EXPORT AmbrelMidiStream : public MidiStream {
public:
    AmbrelMidiStream(const vemo_midi::SongData& songData, MidiVolumeScaler& volumeScaler);
    ~AmbrelMidiStream() override;
    AmbrelMidiStream(const AmbrelMidiStream&) = default;

    void ScaleVolumeCc(unsigned short trackId, vemo_midi::VoiceEvent* event) override;
    void SendPersistentVolumeForScaledTracks_(MidiBuffer& buffer) override;

private:
    MidiVolumeScaler& volumeScaler_;
};
