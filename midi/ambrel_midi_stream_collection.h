#pragma once

#include <map>
#include <set>
#include <string>

#include "midi/midi_stream_collection.h"
#include "midi/midi_volume_scaler.h"
#include "vemo_core/ambrel_show_data.h"

/// The streams of a show whose tracks the operator trims in volume and mutes also
/// by groups, as AmbrelMidiStream. Trims and mutes hold from song to song.
///
/// Owner, Lock, Units, Errors: as MidiStreamCollection.
/// Threads: as MidiStreamCollection; the trims on any.
///
/// A mute is remembered also where it then throws, having no current song yet; a
/// group stops there at its first track. SetMutedTracks() is for the current song
/// alone and remembers nothing.
class VEMO_MIDI_EXPORT AmbrelMidiStreamCollection : public MidiStreamCollection {
public:
    /// Begins to load.
    explicit AmbrelMidiStreamCollection(const ambrel::AmbrelShowData& showData);
    ~AmbrelMidiStreamCollection() override;

    /// The song with the mutes of this collection. Chases nothing: the song is
    /// entered, and so chased whole.
    MidiStream& GetStream(const std::string& key) override;

    /// Each track of the group; nothing where there is no such group.
    void MuteGroup(unsigned char group) override;
    void UnmuteGroup(unsigned char group) override;
    void MuteTrack(unsigned short trackId) override;
    void UnmuteTrack(unsigned short trackId) override;
    void UnmuteAll() override;
    std::set<unsigned short> GetMutedTracks() const { return mutedTracks_; }

    void SetTrackTrim(unsigned short trackId, unsigned char trim);
    void SetAllTracksTrim(const std::map<unsigned short, unsigned char>& trims);

protected:
    AmbrelMidiStreamCollection(const ambrel::AmbrelShowData& showData, LeftToDerivedForm);

    MidiStream* CreateMidiStream(const vemo_midi::SongData& songData) override;
    /// Where a form of the host's own keeps the mutes of a show; nothing here
    /// reads or writes it.
    static std::string GetMuteSettingsFileName();

private:
    const ambrel::Groups& groups_;  // the show's
    std::set<unsigned short> mutedTracks_;
    MidiVolumeScaler volumeScaler_;
};
