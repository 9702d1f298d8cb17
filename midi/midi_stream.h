#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "midi/midi_buffer.h"
#include "midi/persistent_midi.h"
#include "midi/track_snapshots.h"
#include "midi/vemo_midi_export.h"
#include "vemo_core/song_data.h"
#include "vemo_core/voice_event.h"
#include "vemo_core/voice_track.h"

/// One song as MIDI: puts the events of each output cycle into a buffer and, where
/// the song is entered, left, transposed or unmuted in the middle, what makes it
/// sound right at once.
///
/// Owner:   MidiStreamCollection or the host. A value: a copy goes on by itself,
///          and nothing in it refers to the original.
/// Threads: one at a time; the caller serialises cycles (queue thread) with seeks,
///          mutes and programs (host thread).
/// Lock:    the buffer's GetMutex(), for the whole of each operation that is given
///          a buffer.
/// Units:   ticks; a cycle ends before its tick index. Semitones. Programs 0-127.
///          Track id >> 4 is the output port, id & 0x0F the channel.
/// Errors:  std::out_of_range from an enqueue after the unmuting of a track that
///          the song lacks. What a buffer refuses stays due, or is lost where it
///          belongs to no cycle (chased and silencing events).
///
/// What a host has to know of mutes: what a muted track would have sent is neither
/// sent nor remembered, note-offs included, and its state stays that of the moment
/// it was muted. So who mutes a track also ends what it holds: AllNotesOff() into a
/// buffer of its own, and of that the track's note-offs. What an unmuting cycle
/// strikes is not remembered either: after it, the host seeks twice to the tick
/// enqueued so far, and both the state and what counts as sounding are true again.
/// A seek also drops what a full port still held back.
class VEMO_MIDI_EXPORT MidiStream {
public:
    /// Has no snapshots and no names yet: the concrete forms bring them. Until
    /// then it seeks as in an empty song.
    explicit MidiStream(const vemo_midi::SongData& songData);
    virtual ~MidiStream();
    MidiStream(const MidiStream&) = default;
    MidiStream& operator=(const MidiStream&) = default;

    /// For the concrete forms: changes a volume on its way out (here: does not),
    virtual void ScaleVolumeCc(unsigned short trackId, vemo_midi::VoiceEvent* event);
    /// sends the volumes that changed since the last cycle (here: none do),
    virtual void SendPersistentVolumeForScaledTracks_(MidiBuffer& buffer);
    /// says which notes of a track follow a transposition (here: those of its range).
    virtual void SetPersistentTrackRange(PersistentMIDI& persistentMidi, const vemo_midi::VoiceTrack& track);

    /// What sounds until the next enqueue is what was enqueued before the last
    /// seek. A track has no state at beats after its last event.
    void Seek(std::uint32_t tickIndex);

    /// One cycle: every event before the tick index.
    void EnqueueEvents(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer, bool allNotesOff);
    /// One cycle that sends the whole state first.
    void EnqueueInitialEvents(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer);
    void EnqueueAttacca(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer);
    /// One cycle that first ends what no longer holds and sends the state: after a
    /// seek against what sounded before it, else against the current state. With
    /// equal transpositions a note held on both sides goes on untouched.
    void EnqueueEventsWithPersistence(std::uint32_t tickIndex, signed char transposition,
                                      signed char previousTransposition, MidiBuffer& buffer, bool afterSeek);
    /// Ends what sounds, muted tracks included; changes no state.
    void AllNotesOff(signed char transposition, MidiBuffer& buffer);

    void MuteTrack(unsigned short trackId);
    /// The next cycle sends the track's state, if the track was muted.
    void UnmuteTrack(unsigned short trackId);
    /// Sends no state.
    void UnmuteAll();
    void SetMutedTracks(const std::map<unsigned short, bool>& muted);
    /// Replaces the muted tracks and sends no state.
    void SetMutedTracks(const std::set<unsigned short>& muted);
    void ResetMuteSettings();
    /// The next cycle begins with all notes off and reset all controllers on the
    /// channel of every muted track.
    void SendAllNotesOffForMutedTracks();

    /// Back to the song's own programs; the next cycle sends them.
    void FollowMidiProgramChanges();
    /// From now on the song's own changes of the track are not sent. Sends nothing.
    void SetUserProgramChange(unsigned short trackId, unsigned char program);
    void SetUserProgramChanges(const std::map<unsigned short, unsigned char>& programs);
    void ResetProgramChanges();
    std::map<unsigned short, unsigned char> GetCurrentProgramChangesByTrackId() const { return currentProgramChanges_; }
    std::map<unsigned short, std::string> GetTrackNamesByTrackId() const { return trackNames_; }

protected:
    using PersistentMidiByTrackId = std::map<unsigned short, PersistentMIDI>;

    /// Takes the snapshots and stands at the song's start. The last step of a
    /// concrete form's constructor, because it asks SetPersistentTrackRange().
    void InitializePersistenceData();
    /// On the track's own port; false when the buffer did not take it.
    static bool Send_(unsigned short trackId, const vemo_midi::VoiceEvent& event, MidiBuffer& buffer);

    vemo_midi::SongData songData_;

private:
    using Position = std::size_t;  // in a track's events
    struct Ending {
        PersistentMIDI::Events notes;
        PersistentMIDI::Events switches;
        PersistentMIDI::Events ccs;
    };
    using EndingByTrackId = std::map<unsigned short, Ending>;

    const std::vector<vemo_midi::VoiceEvent>& Events_(unsigned short trackId) const;
    std::size_t BeatAt_(std::uint32_t tickIndex) const;
    PersistentMIDI ChaseStateAt_(unsigned short trackId, std::uint32_t tickIndex) const;
    void Enqueue_(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer);
    void SilenceMutedTracks_(MidiBuffer& buffer);
    void ChaseUnmutedTracks_(signed char transposition, MidiBuffer& buffer);
    void EnqueueTracks_(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer);
    static Ending GetEnding_(const PersistentMIDI& state);
    static void SendEndings_(const EndingByTrackId& endings, const PersistentMidiByTrackId& ranges,
                             signed char transposition, MidiBuffer& buffer);
    void SendPersistenceData_(const PersistentMidiByTrackId& state, signed char transposition, MidiBuffer& buffer);
    static void SendPersistentProgramChanges_(const PersistentMidiByTrackId& state, MidiBuffer& buffer);

    // Tick 0 and the beats after it, up to the last one at which a track has a snapshot.
    std::vector<std::uint32_t> snapshotTicks_;
    std::map<unsigned short, TrackSnapshots> persistenceSnapshots_;
    std::map<unsigned short, Position> trackEventIterators_;
    std::uint32_t lastTickIndex_ = 0;

protected:
    PersistentMidiByTrackId persistentMidi_;  // of everything enqueued so far
    std::map<unsigned short, std::string> trackNames_;
    std::map<unsigned short, unsigned char> defaultProgramChanges_;
    std::map<unsigned short, unsigned char> currentProgramChanges_;

private:
    PersistentMidiByTrackId preSeekPersistentMidi_;
    // Which of the two sounds. A pointer to a member, so that a copy means its own.
    PersistentMidiByTrackId MidiStream::*soundingPersistentMidi_ = &MidiStream::persistentMidi_;
    std::set<unsigned short> mutedTracks_;
    std::set<unsigned short> unmutedTracksToChase_;
    std::map<unsigned short, unsigned char> userProgramChanges_;
    bool sendPersistentProgramChanges_ = false;
    bool sendAllNotesOffForMutedTracks_ = false;
};
