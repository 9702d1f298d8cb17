#pragma once

#include <map>
#include <mutex>
#include <set>

#include "midi/midi_scaler.h"
#include "midi/vemo_midi_export.h"

/// The volume trims of a show's tracks, as the operator sets them, and which of
/// them the streams have not sent yet.
///
/// Owner:   the show's stream collection or the host; outlives the streams that
///          refer to it.
/// Threads: any: the operator's thread sets trims while the queue thread reads.
/// Lock:    one of its own, recursive; a leaf.
/// Units:   percent, up to 127; a track without a trim has 100. Values 0-127.
/// Errors:  none; what is too large becomes 127.
class VEMO_MIDI_EXPORT MidiVolumeScaler {
public:
    MidiVolumeScaler() = default;
    MidiVolumeScaler(const MidiVolumeScaler&) = delete;
    MidiVolumeScaler& operator=(const MidiVolumeScaler&) = delete;

    void SetTrackTrim(unsigned short trackId, unsigned char trim);
    void SetAllTracksTrim(const std::map<unsigned short, unsigned char>& trims);
    unsigned char GetScale(unsigned short trackId);
    unsigned char GetScaledMidiValue(unsigned short trackId, unsigned char value);
    /// The tracks whose trim was set since the last call.
    std::set<unsigned short> GetRecentlyAffectedTrackIds();
    bool GetHasRecentlyAffectedTrackIds();

private:
    std::recursive_mutex mutex_;
    std::map<unsigned short, MidiScaler> trims_;    // guarded by mutex_
    std::set<unsigned short> recentlyAffectedIds_;  // guarded by mutex_
};
