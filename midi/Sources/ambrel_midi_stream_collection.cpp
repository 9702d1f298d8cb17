#include "midi/ambrel_midi_stream_collection.h"

#include "midi/ambrel_midi_stream.h"
#include "vemo_core/directories.h"
#include "zell/path.h"

AmbrelMidiStreamCollection::AmbrelMidiStreamCollection(const ambrel::AmbrelShowData& showData)
    : AmbrelMidiStreamCollection(showData, LeftToDerivedForm()) {
    StartLoadStreamsThread();
}

AmbrelMidiStreamCollection::AmbrelMidiStreamCollection(const ambrel::AmbrelShowData& showData, LeftToDerivedForm)
    : MidiStreamCollection(showData), groups_(showData.GetGroups()) {}

AmbrelMidiStreamCollection::~AmbrelMidiStreamCollection() {
    // Before the scaler dies, which the stream being built refers to.
    StopLoading();
}

MidiStream* AmbrelMidiStreamCollection::CreateMidiStream(const vemo_midi::SongData& songData) {
    return new AmbrelMidiStream(songData, volumeScaler_);
}

MidiStream& AmbrelMidiStreamCollection::GetStream(const std::string& key) {
    MidiStream& stream = MidiStreamCollection::GetStream(key);
    stream.SetMutedTracks(mutedTracks_);
    return stream;
}

void AmbrelMidiStreamCollection::MuteGroup(unsigned char group) {
    for (const unsigned short id : groups_.GetGroup(group))
        MuteTrack(id);
}

void AmbrelMidiStreamCollection::UnmuteGroup(unsigned char group) {
    for (const unsigned short id : groups_.GetGroup(group))
        UnmuteTrack(id);
}

void AmbrelMidiStreamCollection::MuteTrack(unsigned short trackId) {
    mutedTracks_.insert(trackId);
    MidiStreamCollection::MuteTrack(trackId);
}

void AmbrelMidiStreamCollection::UnmuteTrack(unsigned short trackId) {
    mutedTracks_.erase(trackId);
    MidiStreamCollection::UnmuteTrack(trackId);
}

void AmbrelMidiStreamCollection::UnmuteAll() {
    mutedTracks_.clear();
    MidiStreamCollection::UnmuteAll();
}

void AmbrelMidiStreamCollection::SetTrackTrim(unsigned short trackId, unsigned char trim) {
    volumeScaler_.SetTrackTrim(trackId, trim);
}

void AmbrelMidiStreamCollection::SetAllTracksTrim(const std::map<unsigned short, unsigned char>& trims) {
    volumeScaler_.SetAllTracksTrim(trims);
}

std::string AmbrelMidiStreamCollection::GetMuteSettingsFileName() {
    return zell::path::Join(directories.GetShowDirectory(), "muteSettings");
}
