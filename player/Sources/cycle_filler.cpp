#include "player/cycle_filler.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace player {

namespace {

constexpr std::uint8_t kPortCount = 1;
constexpr std::uint16_t kBufferSize = 65535;
constexpr std::size_t kUsualMessages = 512;
constexpr std::uint8_t kVolume = 7;
constexpr std::uint8_t kClickVelocity = 100;
constexpr std::uint8_t kAccentVelocity = 127;

// What a channel holds where nobody has set it. Data entry and the selection of
// parameters are no state but the steps of setting one.
std::optional<std::uint8_t> DefaultOfController(int controller) {
    switch (controller) {
        case kVolume: return std::uint8_t{100};
        case 10: return std::uint8_t{64};
        case 11: return std::uint8_t{127};
        case 6:
        case 38:
        case 96:
        case 97:
        case 98:
        case 99:
        case 100:
        case 101: return std::nullopt;
        default: return std::uint8_t{0};
    }
}

// A cycle buffer's messages lie in the platform's short-event layout: three words
// each, the message in the third.
std_midi::VoiceMessage MessageAt(const void* packetData, std::size_t index) {
    std::uint32_t words[3];
    std::memcpy(words, static_cast<const std::uint8_t*>(packetData) + index * sizeof(words), sizeof(words));
    return {static_cast<std::uint8_t>(words[2]), static_cast<std::uint8_t>(words[2] >> 8),
            static_cast<std::uint8_t>(words[2] >> 16)};
}

std::size_t ChannelOf(const std_midi::VoiceMessage& message) {
    return message.status & 0x0Fu;
}

int Modulo(int value, int divisor) {
    const int rest = value % divisor;
    return rest < 0 ? rest + divisor : rest;
}

}  // namespace

CycleFiller::CycleFiller(UserControls& userControls)
    : userControls_(userControls), scratchBuffer_(CreateMidiBuffer(kPortCount, kBufferSize, "scratchBuffer")) {
    for (Cycle& cycle : cycles_)
        cycle.messages.reserve(kUsualMessages);
}

// ---- the host's side

void CycleFiller::SetStreams(ShowStreams* streams) {
    streams_ = streams;
    stream_ = nullptr;
    song_ = nullptr;
    selected_ = nullptr;
    next_ = nullptr;
    for (Cycle& cycle : cycles_)
        cycle.song = nullptr;
}

void CycleFiller::Select(const std::shared_ptr<LoadedSong>& song) {
    if (!streams_)
        throw std::logic_error("no show is loaded");
    stream_ = &streams_->Select(song->plan.key, song->plan.mutedTracks);
    stream_->SetUserProgramChanges(song->plan.userPrograms);
    selected_ = song;
    song_ = song;
    if (axis_)
        axis_->UpdateToNewSong(song->plan.key, song->plan.song->song.GetResolution());
    pendingUnmutes_.clear();
    channelsToSilence_.clear();
}

void CycleFiller::Start(const StartAt& start, const DeviceState& device) {
    ReturnTo(start.song);
    sounding_ = start.sounding;
    deviceIsFresh_ = start.deviceIsFresh;
    entry_ = deviceIsFresh_ ? Entry::kCold : Entry::kFresh;
    if (sounding_)
        entry_ = sounding_->transposition == 0 ? Entry::kAfterSeek : Entry::kTransposedSeek;
    const std::uint32_t tick = start.tick;
    song_->fillTracker.Seek(tick);
    endedAtStart_ = entry_ == Entry::kAfterSeek ? FindHeldState(sounding_->tick).controllers : ByChannel();
    heldAtStart_ = FindHeldState(tick);
    // First to the place up to which the device has heard the song, so that the
    // stream compares with what really sounds and not with the cycles that were
    // filled and never played.
    if (sounding_)
        stream_->Seek(sounding_->tick);
    stream_->Seek(tick);
    // Where notes sound on, an unmute waits for a cycle of its own: compared with
    // what the track would have sounded, its state would be taken for sounding.
    if (!sounding_)
        for (const unsigned short id : std::exchange(pendingUnmutes_, {}))
            song_->plan.mutedTracks.erase(id);
    // The set form, which chases nothing: a start sends the whole state anyway.
    stream_->SetMutedTracks(song_->plan.mutedTracks);
    state_ = device;
    filledCount_ = 0;
    playedCount_ = 0;
    fillTick_ = tick;
    enqueuedTick_ = tick;
    portWasFull_ = false;
    lastIsFilled_ = false;
    wantsCycles_ = true;
    seekBeforeFill_ = false;
    completePrograms_ = false;
    clickNote_.reset();
    const TL::Meter& meter = song_->fillTracker.GetMeter();
    countInClocksPerBar_ = std::max(1, meter.beats() * 96 / std::max(1, meter.beat_unit()));
    countInLeft_ = start.countInBars * countInClocksPerBar_;
}

void CycleFiller::ReturnTo(const std::shared_ptr<LoadedSong>& song) {
    isAhead_ = false;
    if (selected_ != song)
        Select(song);
}

void CycleFiller::Stop() {
    wantsCycles_ = false;
}

void CycleFiller::SetNext(std::shared_ptr<LoadedSong> next) {
    next_ = std::move(next);
}

// The filling tracker stands still at the music's start meanwhile.
int CycleFiller::CountInClockNumber(int clocksLeft) const {
    const HowToPlay& tracker = song_->fillTracker;
    return Modulo(tracker.GetClockNumber() - clocksLeft, std::max(1, tracker.GetClocksPerClick()));
}

void CycleFiller::BreakOff(MidiBuffer& buffer) {
    lastIsFilled_ = true;
    buffer.SetIsLastBuffer(true);
}

bool CycleFiller::Mute(unsigned short id, bool ringing) {
    pendingUnmutes_.erase(id);
    if (!song_->plan.mutedTracks.insert(id).second)
        return false;
    streams_->Mute(id);
    stream_->SendAllNotesOffForMutedTracks();
    // What is filled already will still strike notes of the track: the first cycle
    // filled from now on ends those.
    if (ringing)
        channelsToSilence_.insert(id);
    return true;
}

void CycleFiller::Unmute(unsigned short id, bool ringing) {
    if (!song_->plan.mutedTracks.contains(id))
        return;
    // The filler unmutes at a cycle that does nothing else.
    if (ringing) {
        pendingUnmutes_.insert(id);
        return;
    }
    song_->plan.mutedTracks.erase(id);
    streams_->Unmute(id);
}

void CycleFiller::SetUserProgram(unsigned short id, unsigned char program) {
    song_->plan.userPrograms[id] = program;
    stream_->SetUserProgramChange(id, program);
    // What is filled already may still change it back.
    completePrograms_ = true;
}

void CycleFiller::FollowPrograms() {
    song_->plan.userPrograms.clear();
    stream_->FollowMidiProgramChanges();
    completePrograms_ = true;
}

CycleFiller::HeldState CycleFiller::FindHeldState(std::uint32_t tick) {
    // Ending the state of a place names what the place holds.
    stream_->Seek(tick);
    stream_->Seek(tick);
    std::lock_guard buffer(scratchBuffer_->GetMutex());
    scratchBuffer_->Reset();
    stream_->AllNotesOff(Transposition(), *scratchBuffer_);
    HeldState held;
    const void* data = scratchBuffer_->GetPacketDataAtPortIndex(0);
    for (std::size_t i = 0; i < scratchBuffer_->GetPortEventCount(0); ++i) {
        const std_midi::VoiceMessage message = MessageAt(data, i);
        const std::size_t channel = ChannelOf(message);
        if ((message.status & 0xF0) == 0xB0)
            held.controllers[channel].set(message.data1 & 0x7Fu);
        else if (!song_->plan.mutedTracks.contains(static_cast<unsigned short>(channel)))
            held.notes[channel].set(message.data1 & 0x7Fu);
    }
    return held;
}

signed char CycleFiller::Transposition() {
    int semitones = song_->fillTracker.GetTranspositionValue();
    // The user's controls are those of the song that is heard.
    if (isAhead_ && song_->plan.transposition)
        semitones += *song_->plan.transposition - userControls_.GetTransposition();
    return static_cast<signed char>(std::clamp(semitones, -127, 127));
}

// ---- filling

void CycleFiller::Fill(MidiBuffer& buffer) {
    if (countInLeft_ > 0) {
        FillCountIn(buffer);
        return;
    }
    Cycle& cycle = BeginCycle();
    // Where a port was too small for its cycle, its rest goes out before the end.
    if (fillTick_ >= song_->endTick && !portWasFull_ && !EnterNext(buffer, cycle)) {
        buffer.SetTickIndex(fillTick_);
        BreakOff(buffer);
        return;
    }
    HowToPlay& tracker = song_->fillTracker;
    const std::uint32_t tick = fillTick_;
    if (entry_ == Entry::kRunning) {
        // Twice: what covers a tick is judged by the events in effect before a move.
        tracker.AdvanceToTickIndex(tick);
        tracker.AdvanceToTickIndex(tick);
    }
    buffer.SetTickIndex(tick);
    buffer.SetClockNumber(tracker.GetClockNumber());
    buffer.SetClocksPerClick(tracker.GetClocksPerClick());
    fillTick_ = tick + song_->ticksPerClock;
    cycle.song = song_;
    cycle.tick = tick;
    cycle.transposition = Transposition();
    if (axis_) {
        cycle.timeCode = axis_->GetTimeCodeSecondsPair(tick);
        // The clock of the last tick lies behind the song, where the next one begins: the
        // time stands still for it, and goes on unbroken.
        const double end = axis_->ConvertTickIndexToSeconds(song_->plan.song->song.GetTimeline().GetLastTickIndex());
        cycle.timeCode.second = std::max(cycle.timeCode.first, std::min(cycle.timeCode.second, end));
    }
    buffer.SetTimeCodeSeconds(cycle.timeCode.first);
    buffer.SetNextTimeCodeSeconds(cycle.timeCode.second);

    EndClick(buffer, cycle);
    const bool enters = entry_ != Entry::kRunning;
    EnqueueSong(buffer, std::min(fillTick_, song_->endTick), cycle);
    portWasFull_ = buffer.GetBufferIsFull(0);
    Absorb(buffer, cycle);
    if (enters && !deviceIsFresh_)
        CompleteState(buffer, cycle);
    if (std::exchange(completePrograms_, false) || enters)
        CompletePrograms(buffer, cycle, enters);
    deviceIsFresh_ = false;
    if (restore_ && !portWasFull_)
        RestoreState(buffer, cycle);
    SilenceMutedChannels(buffer, cycle);
    if (song_->plan.click)
        FillClick(buffer, cycle, tracker.GetClockNumber(), tracker.GetClocksPerClick(),
                  tracker.GetBarBeat().beat() == 1 && tracker.GetBarBeat().abs_time() + song_->ticksPerClock > tick,
                  *song_->plan.click);
    entry_ = Entry::kRunning;
    previousTransposition_ = cycle.transposition;
    EndCycle(buffer);
}

CycleFiller::Cycle& CycleFiller::BeginCycle() {
    Cycle& cycle = cycles_[filledCount_ % kRememberedCycles];
    cycle.messages.clear();
    cycle.countInLeft = 0;
    ownMessages_ = 0;
    return cycle;
}

void CycleFiller::EndCycle(MidiBuffer& buffer) {
    ++filledCount_;
    buffer.DoneAddingEventsToBuffer();
    buffer.SetHasData(true);
}

/// The cycle after a song's last: the first of the song that follows at once, which
/// also ends what the old one holds. False where none follows.
bool CycleFiller::EnterNext(MidiBuffer& buffer, Cycle& cycle) {
    if (!next_ || !streams_->IsLoaded(next_->plan.key))
        return false;
    stream_->AllNotesOff(previousTransposition_, buffer);
    Absorb(buffer, cycle);
    EndEveryNote(buffer, cycle);
    clickNote_.reset();
    ownMessages_ = cycle.messages.size();
    song_ = std::exchange(next_, nullptr);
    Select(song_);
    isAhead_ = true;
    song_->fillTracker.Seek(song_->startTick);
    heldAtStart_ = FindHeldState(song_->startTick);
    endedAtStart_ = {};
    stream_->Seek(song_->startTick);
    fillTick_ = song_->startTick;
    enqueuedTick_ = fillTick_;
    seekBeforeFill_ = false;
    completePrograms_ = false;
    sounding_.reset();
    entry_ = Entry::kFresh;
    return true;
}

void CycleFiller::FillCountIn(MidiBuffer& buffer) {
    Cycle& cycle = BeginCycle();
    cycle.song = song_;
    cycle.tick = fillTick_;
    cycle.transposition = 0;
    cycle.countInLeft = countInLeft_;
    cycle.countInClocksPerBar = countInClocksPerBar_;
    const int clocksPerClick = std::max(1, song_->fillTracker.GetClocksPerClick());
    const int clockNumber = CountInClockNumber(countInLeft_);
    cycle.countInClockNumber = clockNumber;
    buffer.SetTickIndex(fillTick_);
    buffer.SetClockNumber(clockNumber);
    buffer.SetClocksPerClick(clocksPerClick);
    EndClick(buffer, cycle);
    ShowDocument::ClickTrack click = song_->plan.click.value_or(ShowDocument::ClickTrack());
    click.muted = false;
    FillClick(buffer, cycle, clockNumber, clocksPerClick, countInLeft_ % countInClocksPerBar_ == 0, click);
    --countInLeft_;
    EndCycle(buffer);
}

void CycleFiller::EnqueueSong(MidiBuffer& buffer, std::uint32_t endTick, Cycle& cycle) {
    const signed char transposition = cycle.transposition;
    switch (entry_) {
        case Entry::kTransposedSeek:
            stream_->AllNotesOff(sounding_->transposition, buffer);
            Absorb(buffer, cycle);
            ownMessages_ = cycle.messages.size();
            [[fallthrough]];
        case Entry::kCold:
        case Entry::kFresh: stream_->EnqueueInitialEvents(endTick, transposition, buffer); break;
        case Entry::kAfterSeek:
            stream_->EnqueueEventsWithPersistence(endTick, transposition, sounding_->transposition, buffer, true);
            break;
        case Entry::kRunning: EnqueueRunning(buffer, endTick, cycle); break;
    }
    enqueuedTick_ = endTick;
}

void CycleFiller::EnqueueRunning(MidiBuffer& buffer, std::uint32_t endTick, Cycle& cycle) {
    const signed char transposition = cycle.transposition;
    // Not over what a full port has left waiting: a seek would skip it.
    if (!portWasFull_ && std::exchange(seekBeforeFill_, false))
        stream_->Seek(enqueuedTick_);
    if (transposition != previousTransposition_) {
        stream_->EnqueueEventsWithPersistence(endTick, transposition, previousTransposition_, buffer, false);
        return;
    }
    if (!portWasFull_)
        UnmutePending();
    stream_->EnqueueEvents(endTick, transposition, buffer, false);
}

void CycleFiller::UnmutePending() {
    for (auto next = pendingUnmutes_.begin(); next != pendingUnmutes_.end();) {
        const unsigned short id = *next;
        // What the mute has still to end would be struck a second time.
        if (channelsToSilence_.contains(id)) {
            ++next;
            continue;
        }
        next = pendingUnmutes_.erase(next);
        streams_->Unmute(id);
        song_->plan.mutedTracks.erase(id);
        // The chase strikes notes that the stream does not record: in the next
        // cycle it takes its state from the song again.
        seekBeforeFill_ = true;
    }
}

/// Takes note of what the stream has put into the buffer.
void CycleFiller::Absorb(MidiBuffer& buffer, Cycle& cycle) {
    const void* data = buffer.GetPacketDataAtPortIndex(0);
    for (std::size_t i = cycle.messages.size(); i < buffer.GetPortEventCount(0); ++i) {
        cycle.messages.push_back(MessageAt(data, i));
        state_.Apply(cycle.messages.back());
    }
}

void CycleFiller::Append(MidiBuffer& buffer, Cycle& cycle, const vemo_midi::VoiceEvent& event) {
    if (!buffer.AddEventToBuffer(0, event))
        return;
    cycle.messages.push_back(event.message);
    state_.Apply(event.message);
}

void CycleFiller::EndEveryNote(MidiBuffer& buffer, Cycle& cycle) {
    ownEvents_.clear();
    for (int channel = 0; channel < DeviceState::kChannels; ++channel)
        state_.AppendNoteOffs(channel, ownEvents_);
    for (const vemo_midi::VoiceEvent& off : ownEvents_)
        Append(buffer, cycle, off);
}

void CycleFiller::RestoreState(MidiBuffer& buffer, Cycle& cycle) {
    restore_ = false;
    ownEvents_.clear();
    for (int channel = 0; channel < DeviceState::kChannels; ++channel)
        state_.AppendState(channel, ownEvents_);
    for (const vemo_midi::VoiceEvent& event : ownEvents_)
        Append(buffer, cycle, event);
}

/// Adds to a cycle that enters a place what the stream's own events leave unset of
/// what the device may still hold from before.
void CycleFiller::CompleteState(MidiBuffer& buffer, Cycle& cycle) {
    ByChannel struck;
    ByChannel setBySong;
    ByChannel ended = endedAtStart_;
    for (std::size_t i = ownMessages_; i < cycle.messages.size(); ++i) {
        const std_midi::VoiceMessage& message = cycle.messages[i];
        const std::size_t channel = ChannelOf(message);
        const std::size_t number = message.data1 & 0x7Fu;
        if ((message.status & 0xF0) == 0x90)
            struck[channel].set(number);
        // What ends a controller of the old state comes first; what comes after it
        // is the song's own.
        if ((message.status & 0xF0) == 0xB0 && ended[channel].test(number))
            ended[channel].reset(number);
        else if ((message.status & 0xF0) == 0xB0)
            setBySong[channel].set(number);
    }
    for (std::uint16_t channel = 0; channel < DeviceState::kChannels; ++channel) {
        ownEvents_.clear();
        state_.AppendNoteOffs(channel, ownEvents_);
        for (const vemo_midi::VoiceEvent& off : ownEvents_)
            if (!struck[channel].test(off.message.data1) && !heldAtStart_.notes[channel].test(off.message.data1))
                Append(buffer, cycle, off);
        for (int controller = 0; controller < DeviceState::kStateControllers; ++controller) {
            const std::uint8_t value = state_.GetController(channel, controller);
            std::optional<std::uint8_t> wanted = DefaultOfController(controller);
            if (controller == kVolume)
                wanted = streams_->GetTrim(channel);
            if (value == DeviceState::kUnknown || !wanted ||
                setBySong[channel].test(static_cast<std::size_t>(controller)) ||
                heldAtStart_.controllers[channel].test(static_cast<std::size_t>(controller)))
                continue;
            if (value != *wanted)
                Append(buffer, cycle, {0, 0xB0, channel, static_cast<std::uint8_t>(controller), *wanted});
        }
    }
}

/// The programs that the stream does not send: the operator's, the show file's and
/// the track's own where nothing chose one.
void CycleFiller::CompletePrograms(MidiBuffer& buffer, Cycle& cycle, bool enters) {
    const SongToPlay& plan = song_->plan;
    for (const auto& [id, track] : plan.song->song.GetVoiceData()) {
        if (const auto user = plan.userPrograms.find(id); user != plan.userPrograms.end()) {
            if (enters || state_.GetProgram(id & 0x0F) != user->second)
                Append(buffer, cycle, {0, 0xC0, id, user->second, 0});
            continue;
        }
        const auto& events = track.GetEvents();
        const bool isChosen = std::any_of(events.begin(), events.end(), [this](const vemo_midi::VoiceEvent& event) {
            return event.time < enqueuedTick_ && (event.message.status & 0xF0) == 0xC0;
        });
        if (isChosen)
            continue;
        const auto first = plan.firstPrograms.find(id);
        // A device that was never used holds its own; only the operator's file knows better.
        if (first == plan.firstPrograms.end() && deviceIsFresh_)
            continue;
        const unsigned char program =
            first == plan.firstPrograms.end() ? track.GetDefaultProgramChange() : first->second;
        if (state_.GetProgram(id & 0x0F) != program)
            Append(buffer, cycle, {0, 0xC0, id, program, 0});
    }
}

void CycleFiller::SilenceMutedChannels(MidiBuffer& buffer, Cycle& cycle) {
    for (auto id = channelsToSilence_.begin(); id != channelsToSilence_.end();) {
        ownEvents_.clear();
        state_.AppendNoteOffs(*id, ownEvents_);
        state_.AppendPedalsUp(*id, ownEvents_);
        for (const vemo_midi::VoiceEvent& end : ownEvents_)
            Append(buffer, cycle, end);
        // What a full port refused is left for the next cycle.
        ownEvents_.clear();
        state_.AppendNoteOffs(*id, ownEvents_);
        state_.AppendPedalsUp(*id, ownEvents_);
        id = ownEvents_.empty() ? channelsToSilence_.erase(id) : std::next(id);
    }
}

void CycleFiller::EndClick(MidiBuffer& buffer, Cycle& cycle) {
    if (!clickNote_ || --clickNote_->clocksLeft > 0)
        return;
    if (state_.GetSounding(clickNote_->id, clickNote_->note) > 0)
        Append(buffer, cycle, {0, 0x80, clickNote_->id, clickNote_->note, 64});
    clickNote_.reset();
}

void CycleFiller::FillClick(MidiBuffer& buffer, Cycle& cycle, int clockNumber, int clocksPerClick, bool startsBar,
                            const ShowDocument::ClickTrack& click) {
    if (clockNumber != 0 || click.muted)
        return;
    if (clickNote_) {
        clickNote_->clocksLeft = 1;
        EndClick(buffer, cycle);
    }
    const auto note = static_cast<std::uint8_t>(startsBar ? click.accent : click.note);
    clickNote_ = {static_cast<unsigned short>(click.channel - 1), note, std::max(1, clocksPerClick / 2)};
    Append(buffer, cycle, {0, 0x90, clickNote_->id, note, startsBar ? kAccentVelocity : kClickVelocity});
}

}  // namespace player
