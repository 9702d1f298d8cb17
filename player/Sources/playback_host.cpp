#include "player/playback_host.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "midi/win32/standard_midi_clock_impl.h"
#include "player/offline_clock.h"

namespace player {

namespace {

constexpr std::uint8_t kPortCount = 1;
constexpr std::uint16_t kBufferSize = 65535;
constexpr std::size_t kUsualMessages = 512;
constexpr std::uint8_t kAllSoundOff = 120;

// What a channel holds where nobody has set it. Data entry and the selection of
// parameters are no state but the steps of setting one.
std::optional<std::uint8_t> DefaultOfController(int controller) {
    switch (controller) {
        case 7: return std::uint8_t{100};
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

}  // namespace

PlaybackHost::PlaybackHost(const Settings& settings, PlaybackFeed& feed)
    : feed_(feed),
      beforeVirtualClock_(settings.beforeVirtualClock),
      stopped_(settings.stopped),
      scratchBuffer_(CreateMidiBuffer(kPortCount, kBufferSize, "scratchBuffer")),
      clock_(beforeVirtualClock_
                 ? std::unique_ptr<StandardMidiClock>(std::make_unique<OfflineClock>([this] { beforeVirtualClock_(); }))
                 : std::make_unique<StandardMidiClockImpl>()),
      fillTracker_(userControls_),
      playTracker_(userControls_, *clock_),
      ownBuffer_(CreateMidiBuffer(kPortCount, kBufferSize, "hostBuffer")) {
    for (FilledCycle& cycle : cycles_)
        cycle.messages.reserve(kUsualMessages);
    output_ = std::make_unique<MidiOutputWin32>(
        kPortCount, [this](MidiBuffer& buffer) { FillBuffer(buffer); },
        [this](std::uint32_t tick) {
            PlaybackRecord record;
            record.kind = PlaybackRecord::Kind::kDownbeat;
            record.tick = tick;
            feed_.Publish(record);
        },
        [this] { Stopped(); }, [this] { ClockIsActive(); }, [this](std::uint32_t tick) { return CyclePlayed(tick); },
        *clock_, &hostMutex_);
    output_->Initialize(kPortCount);
    // Before the stream is opened: only then does the buffer get its headers.
    output_->GetPorts().RegisterMidiBuffer(ownBuffer_);
    output_->CreateSynthOutput(settings.output);
}

PlaybackHost::~PlaybackHost() {
    Disarm();
    {
        std::lock_guard host(hostMutex_);
        closing_ = true;
    }
    output_.reset();
    clock_->SetMidiClockCallback([](double) {});
    // In virtual time its thread asks this object for filled cycles: it ends before
    // anything else does.
    clock_.reset();
}

// ---- the transport's side

void PlaybackHost::Disarm() {
    {
        std::lock_guard host(hostMutex_);
        playing_ = false;
        output_->DisarmPlayback();
    }
    {
        std::lock_guard lock(songMutex_);
        wantsCycles_ = false;
        filled_.notify_all();
    }
    // Without the host mutex, which a clock on its way waits for. It must be through
    // before anything is primed, or it would play the first cycle early.
    clock_->WaitForClocksInFlight();
}

void PlaybackHost::Load(std::shared_ptr<const ImportedSong> song, unsigned int songNumber, std::uint32_t startTick,
                        std::optional<std::uint32_t> endTick) {
    // Disarming also drops what the clock was told while disarmed.
    Disarm();
    // Built here, since it takes a while; nothing plays now.
    auto stream = std::make_unique<QuorvelMidiStream>(song->song);
    std::lock_guard lock(songMutex_);
    song_ = std::move(song);
    stream_ = std::move(stream);
    songNumber_ = songNumber;
    const std::uint16_t resolution = song_->song.GetResolution();
    const std::uint32_t lastTick = song_->song.GetTimeline().GetLastTickIndex();
    ticksPerClock_ = resolution / 24u;
    endTick_ = std::min(endTick.value_or(lastTick + 1), lastTick + 1);
    fillTracker_.SetData(song_->log, song_->song.GetTimeline(), resolution);
    playTracker_.SetData(song_->log, song_->song.GetTimeline(), resolution);
    startTick_ = playTracker_.RoundDownToNearestClock(startTick);
    playTracker_.Seek(startTick_);
    sounding_.reset();
    playedSinceArming_ = false;
    mutedTracks_.clear();
    pendingUnmutes_.clear();
    channelsToSilence_.clear();
    hasSongStartTime_ = false;
    songStarted_ = false;
    fault_.clear();
}

std::uint64_t PlaybackHost::Play() {
    return StartAt(GetTick());
}

std::optional<std::uint64_t> PlaybackHost::Locate(std::uint32_t tick) {
    bool wasPlaying = false;
    bool notesHaveEnded = false;
    {
        std::lock_guard host(hostMutex_);
        wasPlaying = playing_;
        // By itself, a moment ago: with the last buffer every note was ended.
        notesHaveEnded = playing_ && !output_->PlaybackIsActive();
    }
    Disarm();
    {
        std::lock_guard lock(songMutex_);
        notesHaveEnded = std::exchange(panicked_, false) || notesHaveEnded;
        // The stream would take notes for sounding on that were ended.
        if (notesHaveEnded)
            sounding_.reset();
    }
    if (notesHaveEnded)
        EndNotes();
    if (wasPlaying)
        return StartAt(tick);
    std::lock_guard lock(songMutex_);
    startTick_ = playTracker_.RoundDownToNearestClock(tick);
    playTracker_.Seek(startTick_);
    playedSinceArming_ = false;
    return std::nullopt;
}

std::uint64_t PlaybackHost::StartAt(std::uint32_t tick) {
    if (!song_)
        throw std::logic_error("no song is loaded");
    Disarm();
    std::uint32_t start = 0;
    int clocksPerClick = 0;
    int clockNumber = 0;
    double clockTime = 0;
    {
        std::lock_guard lock(songMutex_);
        start = playTracker_.RoundDownToNearestClock(tick);
        fillTracker_.Seek(start);
        playTracker_.Seek(start);
        // Before priming, which moves the filling tracker on.
        clockTime = playTracker_.GetClockTime();
        clocksPerClick = playTracker_.GetClocksPerClick();
        clockNumber = playTracker_.GetClockNumber();
        sentClockTime_ = clockTime;
        PrepareStart(start);
        if (!songStarted_)
            PublishSongStart();
        songStarted_ = true;
    }
    std::unique_lock host(hostMutex_);
    output_->Seek(start);
    output_->PrimeBuffers(host);
    clockIsUnplayed_ = false;
    firstClockOfArming_ = true;
    ++arming_;
    if (!output_->ArmPlayback())
        throw std::logic_error("the output cannot be armed");
    playing_ = true;
    clock_->ArmPlayback(ticksPerClock_, clocksPerClick, clockTime, start, clockNumber);
    clock_->ContinuousMode();
    return arming_;
}

void PlaybackHost::PrepareStart(std::uint32_t tick) {
    start_ = deviceIsFresh_ ? Start::kCold : Start::kFresh;
    if (sounding_)
        start_ = sounding_->transposition == 0 ? Start::kAfterSeek : Start::kTransposedSeek;
    endedAtStart_ = sounding_ ? FindHeldState(sounding_->tick) : HeldState();
    heldAtStart_ = FindHeldState(tick);
    // First to the place up to which the device has heard the song, so that the
    // stream compares with what really sounds and not with the cycles that were
    // filled and never played.
    if (sounding_)
        stream_->Seek(sounding_->tick);
    stream_->Seek(tick);
    // The set form, which chases nothing: a start sends the whole state anyway.
    for (const unsigned short id : pendingUnmutes_)
        mutedTracks_.erase(id);
    pendingUnmutes_.clear();
    const std::set<unsigned short> muted = mutedTracks_;
    stream_->SetMutedTracks(muted);
    filledState_ = playedState_;
    playedBefore_ += playedCount_;
    filledCount_ = 0;
    playedCount_ = 0;
    startTick_ = tick;
    fillTick_ = tick;
    enqueuedTick_ = tick;
    portWasFull_ = false;
    lastIsFilled_ = false;
    wantsCycles_ = true;
    seekBeforeFill_ = false;
    playedSinceArming_ = false;
    panicked_ = false;
}

PlaybackHost::HeldState PlaybackHost::FindHeldState(std::uint32_t tick) {
    // Ending the state of a place names what the place holds.
    stream_->Seek(tick);
    stream_->Seek(tick);
    std::lock_guard buffer(scratchBuffer_->GetMutex());
    scratchBuffer_->Reset();
    stream_->AllNotesOff(FillTransposition(), *scratchBuffer_);
    HeldState held;
    const void* data = scratchBuffer_->GetPacketDataAtPortIndex(0);
    for (std::size_t i = 0; i < scratchBuffer_->GetPortEventCount(0); ++i) {
        const std_midi::VoiceMessage message = MessageAt(data, i);
        const auto channel = static_cast<std::size_t>(message.status & 0x0F);
        if ((message.status & 0xF0) == 0xB0)
            held.controllers[channel].set(message.data1 & 0x7Fu);
        else if (!mutedTracks_.contains(static_cast<unsigned short>(channel)))
            held.notes[channel].set(message.data1 & 0x7Fu);
    }
    return held;
}

void PlaybackHost::Stop() {
    Disarm();
    {
        std::lock_guard lock(songMutex_);
        if (sounding_ && playedSinceArming_)
            startTick_ = sounding_->tick;
        sounding_.reset();
    }
    output_->AllNotesOff();
    EndNotes();
}

void PlaybackHost::FinishSong() {
    {
        std::lock_guard host(hostMutex_);
        playing_ = false;
    }
    {
        std::lock_guard lock(songMutex_);
        startTick_ = 0;
        sounding_.reset();
    }
    // The last buffer has sent all notes off.
    EndNotes();
}

void PlaybackHost::Panic() {
    {
        std::lock_guard lock(songMutex_);
        panicked_ = true;
    }
    output_->AllNotesOff();
    EndNotes();
    std::vector<vemo_midi::VoiceEvent> events;
    for (std::uint16_t channel = 0; channel < DeviceState::kChannels; ++channel)
        events.emplace_back(0, std::uint8_t{0xB0}, channel, kAllSoundOff, std::uint8_t{0});
    SendOwnEvents(events);
}

void PlaybackHost::EndNotes() {
    std::vector<vemo_midi::VoiceEvent> events;
    {
        std::lock_guard lock(songMutex_);
        for (int channel = 0; channel < DeviceState::kChannels; ++channel) {
            playedState_.AppendNoteOffs(channel, events);
            playedState_.AppendPedalsUp(channel, events);
        }
        for (const vemo_midi::VoiceEvent& event : events)
            playedState_.Apply(event.message);
    }
    SendOwnEvents(events);
}

void PlaybackHost::SendOwnEvents(const std::vector<vemo_midi::VoiceEvent>& events) {
    if (events.empty())
        return;
    std::scoped_lock lock(output_->GetMutex(), ownBuffer_->GetMutex());
    ownBuffer_->Reset();
    for (const vemo_midi::VoiceEvent& event : events)
        ownBuffer_->AddEventToBuffer(0, event);
    ownBuffer_->DoneAddingEventsToBuffer();
    output_->GetPorts().SendMidiBuffer(*ownBuffer_);
}

void PlaybackHost::SetMuted(int channel, bool muted) {
    const auto id = static_cast<unsigned short>(channel);
    const bool playing = IsPlaying();
    std::vector<vemo_midi::VoiceEvent> events;
    {
        std::lock_guard lock(songMutex_);
        if (!stream_)
            throw std::logic_error("no song is loaded");
        if (!muted) {
            if (!mutedTracks_.contains(id))
                return;
            // While playing, the filler unmutes at a cycle that does nothing else.
            if (playing)
                pendingUnmutes_.insert(id);
            else
                mutedTracks_.erase(id);
            return;
        }
        pendingUnmutes_.erase(id);
        if (!mutedTracks_.insert(id).second)
            return;
        stream_->MuteTrack(id);
        stream_->SendAllNotesOffForMutedTracks();
        if (!playing)
            return;
        // What is filled already will still strike notes of the track: the first
        // cycle filled from now on ends those.
        channelsToSilence_.insert(id);
        playedState_.AppendNoteOffs(channel, events);
        for (const vemo_midi::VoiceEvent& event : events)
            playedState_.Apply(event.message);
    }
    output_->SendAllNotesOff(id);
    SendOwnEvents(events);
}

bool PlaybackHost::IsPlaying() const {
    std::lock_guard host(hostMutex_);
    return playing_;
}

std::uint64_t PlaybackHost::GetArming() const {
    std::lock_guard host(hostMutex_);
    return arming_;
}

unsigned int PlaybackHost::GetSongNumber() const {
    std::lock_guard lock(songMutex_);
    return songNumber_;
}

std::uint32_t PlaybackHost::GetTick() const {
    std::lock_guard lock(songMutex_);
    return sounding_ && playedSinceArming_ ? sounding_->tick : startTick_;
}

std::string PlaybackHost::GetFault() const {
    std::lock_guard lock(songMutex_);
    return fault_;
}

std::uint64_t PlaybackHost::GetPlayedClocks() const {
    std::lock_guard lock(songMutex_);
    return playedBefore_ + playedCount_;
}

std::chrono::nanoseconds PlaybackHost::GetTime() const {
    if (beforeVirtualClock_)
        return static_cast<const OfflineClock&>(*clock_).GetTime();
    return std::chrono::steady_clock::now().time_since_epoch();
}

bool PlaybackHost::WaitForFills(int cycles, std::chrono::milliseconds atMost) const {
    std::unique_lock lock(songMutex_);
    return filled_.wait_for(lock, atMost, [this, cycles] {
        return !wantsCycles_ || lastIsFilled_ || filledCount_ >= playedCount_ + static_cast<std::uint64_t>(cycles);
    });
}

// ---- filling, on the queue thread and during priming

void PlaybackHost::FillBuffer(MidiBuffer& buffer) {
    std::lock_guard bufferLock(buffer.GetMutex());
    std::lock_guard lock(songMutex_);
    try {
        FillCycle(buffer);
    } catch (const std::exception& error) {
        fault_ = error.what();
    } catch (...) {
        fault_ = "unknown exception";
    }
    if (!fault_.empty()) {
        lastIsFilled_ = true;
        buffer.SetIsLastBuffer(true);
    }
    if (beforeVirtualClock_)
        filled_.notify_all();
}

signed char PlaybackHost::FillTransposition() {
    return static_cast<signed char>(std::clamp(fillTracker_.GetTranspositionValue(), -127, 127));
}

void PlaybackHost::FillCycle(MidiBuffer& buffer) {
    const std::uint32_t tick = fillTick_;
    if (start_ == Start::kRunning) {
        // Twice: what covers a tick is judged by the events in effect before a move.
        fillTracker_.AdvanceToTickIndex(tick);
        fillTracker_.AdvanceToTickIndex(tick);
    }
    buffer.SetTickIndex(tick);
    buffer.SetClockNumber(fillTracker_.GetClockNumber());
    buffer.SetClocksPerClick(fillTracker_.GetClocksPerClick());
    fillTick_ = tick + ticksPerClock_;
    // Where a port was too small for its cycle, its rest goes out before the end.
    if (tick >= endTick_ && !portWasFull_) {
        lastIsFilled_ = true;
        buffer.SetIsLastBuffer(true);
        return;
    }
    FilledCycle& cycle = cycles_[filledCount_ % kRememberedCycles];
    cycle.tick = tick;
    cycle.transposition = FillTransposition();
    cycle.messages.clear();

    EnqueueSong(buffer, std::min(tick + ticksPerClock_, endTick_), cycle);
    portWasFull_ = buffer.GetBufferIsFull(0);
    const void* data = buffer.GetPacketDataAtPortIndex(0);
    for (std::size_t i = 0; i < buffer.GetPortEventCount(0); ++i) {
        cycle.messages.push_back(MessageAt(data, i));
        filledState_.Apply(cycle.messages.back());
    }
    if (start_ != Start::kRunning && start_ != Start::kCold)
        CompleteStart(buffer, cycle);
    SilenceMutedChannels(buffer, cycle);

    start_ = Start::kRunning;
    previousTransposition_ = cycle.transposition;
    ++filledCount_;
    buffer.DoneAddingEventsToBuffer();
    buffer.SetHasData(true);
}

void PlaybackHost::EnqueueSong(MidiBuffer& buffer, std::uint32_t endTick, FilledCycle& cycle) {
    const signed char transposition = cycle.transposition;
    switch (start_) {
        case Start::kTransposedSeek: stream_->AllNotesOff(sounding_->transposition, buffer); [[fallthrough]];
        case Start::kCold:
        case Start::kFresh: stream_->EnqueueInitialEvents(endTick, transposition, buffer); break;
        case Start::kAfterSeek:
            stream_->EnqueueEventsWithPersistence(endTick, transposition, sounding_->transposition, buffer, true);
            break;
        case Start::kRunning:
            // Not over what a full port has left waiting: a seek would skip it.
            if (!portWasFull_ && std::exchange(seekBeforeFill_, false))
                stream_->Seek(enqueuedTick_);
            if (transposition != previousTransposition_) {
                stream_->EnqueueEventsWithPersistence(endTick, transposition, previousTransposition_, buffer, false);
                break;
            }
            for (auto next = pendingUnmutes_.begin(); !portWasFull_ && next != pendingUnmutes_.end();) {
                const unsigned short id = *next;
                // What the mute has still to end would be struck a second time.
                if (channelsToSilence_.contains(id)) {
                    ++next;
                    continue;
                }
                next = pendingUnmutes_.erase(next);
                stream_->UnmuteTrack(id);
                mutedTracks_.erase(id);
                // The chase strikes notes that the stream does not record: in the
                // next cycle it takes its state from the song again.
                seekBeforeFill_ = true;
            }
            stream_->EnqueueEvents(endTick, transposition, buffer, false);
            break;
    }
    enqueuedTick_ = endTick;
}

void PlaybackHost::Append(MidiBuffer& buffer, FilledCycle& cycle, const vemo_midi::VoiceEvent& event) {
    if (!buffer.AddEventToBuffer(0, event))
        return;
    cycle.messages.push_back(event.message);
    filledState_.Apply(event.message);
}

void PlaybackHost::CompleteStart(MidiBuffer& buffer, FilledCycle& cycle) {
    std::array<std::bitset<128>, DeviceState::kChannels> struck;
    std::array<std::bitset<128>, DeviceState::kChannels> setBySong;
    auto ended = endedAtStart_.controllers;
    for (const std_midi::VoiceMessage& message : cycle.messages) {
        const auto channel = static_cast<std::size_t>(message.status & 0x0F);
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
        noteOffs_.clear();
        filledState_.AppendNoteOffs(channel, noteOffs_);
        for (const vemo_midi::VoiceEvent& off : noteOffs_)
            if (!struck[channel].test(off.message.data1) && !heldAtStart_.notes[channel].test(off.message.data1))
                Append(buffer, cycle, off);
        for (int controller = 0; controller < DeviceState::kStateControllers; ++controller) {
            const std::uint8_t value = filledState_.GetController(channel, controller);
            const std::optional<std::uint8_t> wanted = DefaultOfController(controller);
            if (value == DeviceState::kUnknown || !wanted || value == *wanted ||
                setBySong[channel].test(static_cast<std::size_t>(controller)) ||
                heldAtStart_.controllers[channel].test(static_cast<std::size_t>(controller)))
                continue;
            Append(buffer, cycle, {0, 0xB0, channel, static_cast<std::uint8_t>(controller), *wanted});
        }
    }
    for (const auto& [id, track] : song_->song.GetVoiceData()) {
        const auto& events = track.GetEvents();
        const bool isChosen = std::any_of(events.begin(), events.end(), [this](const vemo_midi::VoiceEvent& event) {
            return event.time < enqueuedTick_ && (event.message.status & 0xF0) == 0xC0;
        });
        if (!isChosen && filledState_.GetProgram(id & 0x0F) != track.GetDefaultProgramChange())
            Append(buffer, cycle, {0, 0xC0, id, track.GetDefaultProgramChange(), 0});
    }
}

void PlaybackHost::SilenceMutedChannels(MidiBuffer& buffer, FilledCycle& cycle) {
    for (auto id = channelsToSilence_.begin(); id != channelsToSilence_.end();) {
        noteOffs_.clear();
        filledState_.AppendNoteOffs(*id, noteOffs_);
        for (const vemo_midi::VoiceEvent& off : noteOffs_)
            Append(buffer, cycle, off);
        // What a full port refused is left for the next cycle.
        noteOffs_.clear();
        filledState_.AppendNoteOffs(*id, noteOffs_);
        id = noteOffs_.empty() ? channelsToSilence_.erase(id) : std::next(id);
    }
}

// ---- playing, on the clock's thread with the host mutex held

void PlaybackHost::ClockIsActive() {
    if (!output_->PlaybackIsActive())
        return;
    clockTime_ = GetTime();
    clockArming_ = arming_;
    if (clockIsUnplayed_) {
        // The clock before found no filled cycle, and has moved on without one: put
        // it back to where the ring is, or every later change would come too late.
        std::uint32_t tick = 0;
        int clockNumber = 0;
        int clocksPerClick = 0;
        double clockTime = 0;
        {
            std::lock_guard lock(songMutex_);
            tick = sounding_ && playedSinceArming_ ? sounding_->tick : startTick_;
            clockNumber = playTracker_.GetClockNumber();
            clocksPerClick = playTracker_.GetClocksPerClick();
            clockTime = playTracker_.GetClockTime();
            sentClockTime_ = clockTime;
        }
        clock_->SetTickIndex(tick, clockNumber, ticksPerClock_, clocksPerClick, clockTime, 0);
    }
    clockIsUnplayed_ = true;
}

PlaybackRecord PlaybackHost::MakeRecord(PlaybackRecord::Kind kind) {
    PlaybackRecord record;
    record.kind = kind;
    record.song = songNumber_;
    record.clockNumber = playTracker_.GetClockNumber();
    record.clocksPerClick = playTracker_.GetClocksPerClick();
    record.bar = playTracker_.GetBarBeat().bar();
    record.beat = playTracker_.GetBarBeat().beat();
    record.tick = playTracker_.GetTickIndex();
    record.tempo = playTracker_.GetTempoDouble();
    record.meterBeats = playTracker_.GetMeter().beats();
    record.meterUnit = playTracker_.GetMeter().beat_unit();
    record.keySharps = playTracker_.GetKey().sharps();
    record.keyMinor = playTracker_.GetKey().minor();
    record.transposition = playTracker_.GetTranspositionValue();
    record.hasMarker = !song_->log.GetMarkers().empty() && playTracker_.GetMarkerTickIndex() <= record.tick;
    record.markerTick = record.hasMarker ? playTracker_.GetMarkerTickIndex() : 0;
    record.time = clockTime_;
    record.sinceStart = hasSongStartTime_ ? clockTime_ - songStartTime_ : std::chrono::nanoseconds(0);
    return record;
}

void PlaybackHost::PublishSongStart() {
    feed_.Publish(MakeRecord(PlaybackRecord::Kind::kSong));
}

bool PlaybackHost::CyclePlayed(std::uint32_t tick) {
    clockIsUnplayed_ = false;
    std::unique_lock lock(songMutex_);
    FilledCycle& cycle = cycles_[playedCount_ % kRememberedCycles];
    for (const std_midi::VoiceMessage& message : cycle.messages)
        playedState_.Apply(message);
    ++playedCount_;
    const std::uint32_t next = tick + ticksPerClock_;
    sounding_ = {next, cycle.transposition};
    playedSinceArming_ = true;
    deviceIsFresh_ = false;
    if (!std::exchange(hasSongStartTime_, true))
        songStartTime_ = clockTime_;
    // The tracker stands at this cycle; only now does it move on.
    PlaybackRecord record = MakeRecord(PlaybackRecord::Kind::kClock);
    record.tick = tick;
    record.firstAfterStart = std::exchange(firstClockOfArming_, false);

    playTracker_.AdvanceToTickIndexWithLock(next, lock);
    playTracker_.AdvanceToTickIndexWithLock(next, lock);
    const double clockTime = playTracker_.GetClockTime();
    const bool clockTimeChanged = clockTime != sentClockTime_;
    sentClockTime_ = clockTime;
    // A change at the next tick already shapes the interval that leads there.
    record.clockSeconds = clockTime;
    lock.unlock();
    if (clockTimeChanged)
        clock_->SetClockTime(clockTime, next);
    feed_.Publish(record);
    return false;
}

void PlaybackHost::Stopped() {
    std::uint64_t arming = 0;
    {
        std::lock_guard host(hostMutex_);
        // Where the operator has armed again meanwhile, the end is no longer one.
        if (closing_ || output_->PlaybackIsActive())
            return;
        arming = clockArming_;
    }
    if (stopped_)
        stopped_(arming);
}

}  // namespace player
