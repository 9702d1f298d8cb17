#include "midi/midi_volume_scaler.h"

#include <utility>

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

}  // namespace

void MidiVolumeScaler::SetTrackTrim(unsigned short trackId, unsigned char trim) {
    const Lock lock(mutex_);
    recentlyAffectedIds_.insert(trackId);
    trims_[trackId].SetScale(trim);
}

void MidiVolumeScaler::SetAllTracksTrim(const std::map<unsigned short, unsigned char>& trims) {
    const Lock lock(mutex_);  // held over all of them: a cycle sends all or none
    for (const auto& [id, trim] : trims)
        SetTrackTrim(id, trim);
}

unsigned char MidiVolumeScaler::GetScale(unsigned short trackId) {
    const Lock lock(mutex_);
    return trims_[trackId].GetScale();
}

unsigned char MidiVolumeScaler::GetScaledMidiValue(unsigned short trackId, unsigned char value) {
    const Lock lock(mutex_);
    return trims_[trackId].GetScaledMidiValue(value);
}

std::set<unsigned short> MidiVolumeScaler::GetRecentlyAffectedTrackIds() {
    const Lock lock(mutex_);
    return std::exchange(recentlyAffectedIds_, {});
}

bool MidiVolumeScaler::GetHasRecentlyAffectedTrackIds() {
    const Lock lock(mutex_);
    return !recentlyAffectedIds_.empty();
}
