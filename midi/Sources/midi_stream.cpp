#include "midi/midi_stream.h"

#include <algorithm>
#include <mutex>
#include <utility>

using vemo_midi::VoiceEvent;
using vemo_midi::VoiceTrack;

namespace {

constexpr unsigned char kControlChange = 0xB0;
constexpr unsigned char kProgramChange = 0xC0;
constexpr unsigned char kPitchBend = 0xE0;
constexpr unsigned char kAllNotesOff = 123;
constexpr unsigned char kResetAllControllers = 121;
constexpr unsigned char kBendCentre = 0x40;

using Lock = std::lock_guard<std::recursive_mutex>;

std::uint8_t PortOf(unsigned short trackId) {
    // No buffer has a port 255: an id too large for a port index meets a missing
    // port and not, cut to a byte, somebody else's.
    return static_cast<std::uint8_t>(std::min(trackId >> 4, 255));
}

std::size_t FirstNotBefore(const std::vector<VoiceEvent>& events, std::uint32_t tickIndex) {
    const auto first = std::partition_point(events.begin(), events.end(),
                                            [tickIndex](const VoiceEvent& event) { return event.time < tickIndex; });
    return static_cast<std::size_t>(first - events.begin());
}

}  // namespace

MidiStream::MidiStream(const vemo_midi::SongData& songData) : songData_(songData) {}

MidiStream::~MidiStream() = default;

void MidiStream::ScaleVolumeCc(unsigned short, VoiceEvent*) {}

void MidiStream::SendPersistentVolumeForScaledTracks_(MidiBuffer&) {}

void MidiStream::SetPersistentTrackRange(PersistentMIDI& persistentMidi, const VoiceTrack& track) {
    persistentMidi.SetRange(track.GetNoteRange());
}

void MidiStream::InitializePersistenceData() {
    std::vector<std::uint32_t> ticks{0};
    const auto& barsBeats = songData_.GetTimeline().GetBarsBeats();
    for (std::size_t i = 1; i < barsBeats.size(); ++i)
        if (barsBeats[i].abs_time() > ticks.back())
            ticks.push_back(barsBeats[i].abs_time());

    std::size_t lastBeat = 0;
    for (const auto& [id, track] : songData_.GetVoiceData()) {
        PersistentMIDI atStart;
        SetPersistentTrackRange(atStart, track);
        const auto& snapshots =
            persistenceSnapshots_.insert_or_assign(id, TrackSnapshots(track.GetEvents(), ticks, std::move(atStart)))
                .first->second;
        lastBeat = std::max(lastBeat, snapshots.GetLastBeat());
    }
    // Where every track has ended no snapshot is taken any more: a seek beyond
    // finds the last one, with the state of the tracks that ended last.
    ticks.resize(lastBeat + 1);
    ticks.shrink_to_fit();
    snapshotTicks_ = std::move(ticks);
    Seek(songData_.GetSongStartTickIndex());
}

void MidiStream::Seek(std::uint32_t tickIndex) {
    preSeekPersistentMidi_ = std::move(persistentMidi_);
    soundingPersistentMidi_ = &MidiStream::preSeekPersistentMidi_;
    persistentMidi_.clear();
    lastTickIndex_ = tickIndex;
    if (snapshotTicks_.empty())
        return;

    const std::size_t beat = BeatAt_(tickIndex);
    for (const auto& [id, snapshots] : persistenceSnapshots_) {
        const auto& events = Events_(id);
        trackEventIterators_[id] = FirstNotBefore(events, tickIndex);
        if (beat <= snapshots.GetLastBeat())
            persistentMidi_.emplace_hint(persistentMidi_.end(), id, ChaseStateAt_(id, tickIndex));
    }
}

std::size_t MidiStream::BeatAt_(std::uint32_t tickIndex) const {
    const auto after = std::upper_bound(snapshotTicks_.begin(), snapshotTicks_.end(), tickIndex);
    return static_cast<std::size_t>(after - snapshotTicks_.begin()) - 1;
}

PersistentMIDI MidiStream::ChaseStateAt_(unsigned short trackId, std::uint32_t tickIndex) const {
    const auto& events = Events_(trackId);
    PersistentMIDI state;
    std::uint32_t from = 0;
    if (!snapshotTicks_.empty()) {
        const std::size_t beat = BeatAt_(tickIndex);
        const auto& snapshots = persistenceSnapshots_.at(trackId);
        from = snapshotTicks_[beat];
        if (beat <= snapshots.GetLastBeat())
            state = snapshots.GetSnapshot(beat, events);
    }
    for (std::size_t i = FirstNotBefore(events, from); i < events.size() && events[i].time < tickIndex; ++i)
        state.AddEvent(events[i]);
    return state;
}

const std::vector<VoiceEvent>& MidiStream::Events_(unsigned short trackId) const {
    return songData_.GetVoiceData().at(trackId).GetEvents();
}

bool MidiStream::Send_(unsigned short trackId, const VoiceEvent& event, MidiBuffer& buffer) {
    return buffer.AddEventToBuffer(PortOf(trackId), event);
}

void MidiStream::EnqueueEvents(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer,
                               bool allNotesOff) {
    const Lock lock(buffer.GetMutex());
    if (allNotesOff)
        buffer.SetShouldSendAllNotesOff();
    SendPersistentVolumeForScaledTracks_(buffer);
    Enqueue_(tickIndex, transposition, buffer);
}

void MidiStream::EnqueueInitialEvents(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer) {
    const Lock lock(buffer.GetMutex());
    SendPersistenceData_(persistentMidi_, transposition, buffer);
    Enqueue_(tickIndex, transposition, buffer);
}

void MidiStream::EnqueueAttacca(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer) {
    EnqueueInitialEvents(tickIndex, transposition, buffer);
}

void MidiStream::EnqueueEventsWithPersistence(std::uint32_t tickIndex, signed char transposition,
                                              signed char previousTransposition, MidiBuffer& buffer, bool afterSeek) {
    const Lock lock(buffer.GetMutex());
    PersistentMidiByTrackId next = persistentMidi_;
    EndingByTrackId endings;
    for (const auto& [id, before] : afterSeek ? preSeekPersistentMidi_ : persistentMidi_) {
        PersistentMIDI& after = next[id];
        Ending ending = GetEnding_(before);
        if (transposition == previousTransposition)
            for (const auto& [note, event] : after.FilterNotes(ending.notes))
                ending.notes.erase(note);
        for (const auto& [note, event] : after.FilterSwitches(ending.switches))
            ending.switches.erase(note);
        for (const auto& [controller, event] : after.FilterCCs(ending.ccs))
            ending.ccs.erase(controller);
        endings.emplace_hint(endings.end(), id, std::move(ending));
    }
    SendEndings_(endings, next, previousTransposition, buffer);
    SendPersistenceData_(next, transposition, buffer);
    Enqueue_(tickIndex, transposition, buffer);
}

void MidiStream::AllNotesOff(signed char transposition, MidiBuffer& buffer) {
    const Lock lock(buffer.GetMutex());
    const PersistentMidiByTrackId& sounding = this->*soundingPersistentMidi_;
    EndingByTrackId endings;
    for (const auto& [id, state] : sounding)
        endings.emplace_hint(endings.end(), id, GetEnding_(state));
    SendEndings_(endings, sounding, transposition, buffer);
}

MidiStream::Ending MidiStream::GetEnding_(const PersistentMIDI& state) {
    return {state.GetInverseNotes({}), state.GetInverseSwitches({}), state.GetInverseCCs({})};
}

void MidiStream::SendEndings_(const EndingByTrackId& endings, const PersistentMidiByTrackId& ranges,
                              signed char transposition, MidiBuffer& buffer) {
    for (const auto& [id, ending] : endings)
        for (const auto& [note, event] : ending.notes)
            Send_(id, ranges.at(id).GetTransposedEvent(event, transposition), buffer);
    for (const auto& [id, ending] : endings)
        for (const auto& [note, event] : ending.switches)
            Send_(id, event, buffer);
    for (const auto& [id, ending] : endings)
        for (const auto& [controller, event] : ending.ccs)
            Send_(id, event, buffer);
}

void MidiStream::SendPersistenceData_(const PersistentMidiByTrackId& state, signed char transposition,
                                      MidiBuffer& buffer) {
    for (const auto& [id, track] : state) {
        if (mutedTracks_.contains(id))
            continue;
        for (const auto& [note, event] : track.GetSwitches())
            Send_(id, event, buffer);
        for (const auto& [controller, event] : track.GetCCs()) {
            VoiceEvent scaled = event;
            ScaleVolumeCc(id, &scaled);
            Send_(id, scaled, buffer);
        }
        // Centred where the song says nothing: a bend left from elsewhere would
        // put the whole track out of tune.
        Send_(id, track.GetHasPitchBend() ? track.GetPitchBend() : VoiceEvent(0, kPitchBend, id, 0, kBendCentre),
              buffer);
        if (track.HasProgramChange() && !userProgramChanges_.contains(id)) {
            currentProgramChanges_[id] = track.GetProgramChange().message.data1;
            Send_(id, track.GetProgramChange(), buffer);
        }
        // Last, so that they are struck with the right sound.
        for (const auto& [note, event] : track.GetNotes())
            Send_(id, track.GetTransposedEvent(event, transposition), buffer);
    }
}

void MidiStream::SendPersistentProgramChanges_(const PersistentMidiByTrackId& state, MidiBuffer& buffer) {
    for (const auto& [id, track] : state)
        if (track.HasProgramChange() && !Send_(id, track.GetProgramChange(), buffer))
            return;
}

void MidiStream::Enqueue_(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer) {
    SilenceMutedTracks_(buffer);
    ChaseUnmutedTracks_(transposition, buffer);
    EnqueueTracks_(tickIndex, transposition, buffer);
    if (std::exchange(sendPersistentProgramChanges_, false))
        SendPersistentProgramChanges_(persistentMidi_, buffer);
    lastTickIndex_ = tickIndex;
    buffer.DoneAddingEventsToBuffer();
    soundingPersistentMidi_ = &MidiStream::persistentMidi_;
}

void MidiStream::SilenceMutedTracks_(MidiBuffer& buffer) {
    if (!std::exchange(sendAllNotesOffForMutedTracks_, false))
        return;
    for (const unsigned short id : mutedTracks_) {
        Send_(id, VoiceEvent(0, kControlChange, id, kAllNotesOff, 0), buffer);
        Send_(id, VoiceEvent(0, kControlChange, id, kResetAllControllers, 0), buffer);
    }
}

void MidiStream::ChaseUnmutedTracks_(signed char transposition, MidiBuffer& buffer) {
    if (unmutedTracksToChase_.empty())
        return;
    PersistentMidiByTrackId chase;
    for (const unsigned short id : unmutedTracksToChase_)
        chase.emplace_hint(chase.end(), id, ChaseStateAt_(id, lastTickIndex_));
    unmutedTracksToChase_.clear();
    SendPersistenceData_(chase, transposition, buffer);
}

void MidiStream::EnqueueTracks_(std::uint32_t tickIndex, signed char transposition, MidiBuffer& buffer) {
    for (auto& [id, position] : trackEventIterators_) {
        const auto& events = Events_(id);
        if (position == events.size())
            continue;
        if (mutedTracks_.contains(id)) {
            while (position < events.size() && events[position].time < tickIndex)
                ++position;
            continue;
        }
        // The tracks after it wait too, on whatever port: what was held back goes
        // out together, in the next cycle.
        if (buffer.GetBufferIsFull(PortOf(id)))
            break;
        for (; position < events.size() && events[position].time < tickIndex; ++position) {
            VoiceEvent event = persistentMidi_[id].AddEvent(events[position], transposition);
            if ((event.message.status & 0xF0) == kProgramChange) {
                currentProgramChanges_[id] = event.message.data1;
                if (userProgramChanges_.contains(id))
                    continue;
            }
            ScaleVolumeCc(id, &event);
            if (!Send_(id, event, buffer))
                break;
        }
    }
}

void MidiStream::MuteTrack(unsigned short trackId) {
    mutedTracks_.insert(trackId);
}

void MidiStream::UnmuteTrack(unsigned short trackId) {
    if (mutedTracks_.erase(trackId) == 1)
        unmutedTracksToChase_.insert(trackId);
}

void MidiStream::UnmuteAll() {
    mutedTracks_.clear();
}

void MidiStream::SetMutedTracks(const std::map<unsigned short, bool>& muted) {
    for (const auto& [id, isMuted] : muted) {
        if (isMuted)
            MuteTrack(id);
        else
            UnmuteTrack(id);
    }
}

void MidiStream::SetMutedTracks(const std::set<unsigned short>& muted) {
    mutedTracks_ = muted;
    unmutedTracksToChase_.clear();
}

void MidiStream::ResetMuteSettings() {
    mutedTracks_.clear();
    unmutedTracksToChase_.clear();
}

void MidiStream::SendAllNotesOffForMutedTracks() {
    sendAllNotesOffForMutedTracks_ = true;
}

void MidiStream::FollowMidiProgramChanges() {
    userProgramChanges_.clear();
    sendPersistentProgramChanges_ = true;
}

void MidiStream::SetUserProgramChange(unsigned short trackId, unsigned char program) {
    userProgramChanges_[trackId] = program;
}

void MidiStream::SetUserProgramChanges(const std::map<unsigned short, unsigned char>& programs) {
    userProgramChanges_ = programs;
}

void MidiStream::ResetProgramChanges() {
    userProgramChanges_.clear();
    sendPersistentProgramChanges_ = false;
    currentProgramChanges_ = defaultProgramChanges_;
}
