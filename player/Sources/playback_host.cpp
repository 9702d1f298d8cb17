#include "player/playback_host.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <utility>

#include "midi/win32/standard_midi_clock_impl.h"
#include "player/offline_clock.h"
#include "vemo_core/gui_dispatcher.h"

namespace player {

namespace {

constexpr std::uint8_t kPortCount = 1;
constexpr std::uint16_t kBufferSize = 65535;
constexpr std::uint8_t kAllSoundOff = 120;
constexpr std::uint8_t kAllNotesOff = 123;
constexpr std::uint8_t kDamper = 64;
constexpr int kInitialGuiDelayMilliseconds = 220;

vemo_midi::VoiceEvent ControllerEvent(int channel, std::uint8_t controller, std::uint8_t value) {
    return {0, std::uint8_t{0xB0}, static_cast<std::uint16_t>(channel), controller, value};
}

/// What the device refuses the one way it may take the other: all of them, then the
/// first refusal passes.
void TryEach(std::initializer_list<std::function<void()>> steps) {
    std::exception_ptr refusal;
    for (const std::function<void()>& step : steps) {
        try {
            step();
        } catch (...) {
            if (!refusal)
                refusal = std::current_exception();
        }
    }
    if (refusal)
        std::rethrow_exception(refusal);
}

}  // namespace

PlaybackHost::PlaybackHost(const Settings& settings, PlaybackFeed& feed)
    : feed_(feed),
      timeCode_(settings.timeCode),
      beforeVirtualClock_(settings.beforeVirtualClock),
      stopped_(settings.stopped),
      wentOn_(settings.wentOn),
      guiDelayMilliseconds_(std::make_shared<std::atomic<int>>(kInitialGuiDelayMilliseconds)),
      clock_(beforeVirtualClock_
                 ? std::unique_ptr<StandardMidiClock>(std::make_unique<OfflineClock>([this] { beforeVirtualClock_(); }))
                 : std::make_unique<StandardMidiClockImpl>()),
      filler_(userControls_),
      ownBuffer_(CreateMidiBuffer(kPortCount, kBufferSize, "hostBuffer")) {
    notify::guiDispatcher.SetReceiver(
        {[delay = guiDelayMilliseconds_](int milliseconds) { *delay = milliseconds; }, {}});
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
    if (timeCode_)
        output_->SetTimeCodeCallback([this](double seconds, double nextSeconds, double clockSeconds) {
            timeCode_->Play(seconds, nextSeconds, clockSeconds);
        });
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
    notify::guiDispatcher.SetReceiver({});
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
        filler_.Stop();
        filled_.notify_all();
    }
    // Without the host mutex, which a clock on its way waits for. It must be through
    // before anything is primed, or it would play the first cycle early.
    clock_->WaitForClocksInFlight();
}

void PlaybackHost::RequireSong() const {
    if (!song_)
        throw std::logic_error("no song is loaded");
}

void PlaybackHost::SetShow(std::shared_ptr<const Show> show) {
    Disarm();
    TimeCodeConverter axis(show->GetData());
    auto streams = std::make_unique<ShowStreams>(std::move(show));
    std::lock_guard lock(songMutex_);
    filler_.SetStreams(streams.get());
    filler_.SetTimeAxis(axis);
    axis_ = std::move(axis);
    song_ = nullptr;
    follow_ = nullptr;
    retired_ = nullptr;
    // Destroying the old ones waits for the song that they are building.
    std::swap(streams_, streams);
    sounding_.reset();
    playedSinceArming_ = false;
    isAtPause_ = false;
    startTick_ = 0;
}

void PlaybackHost::Load(SongToPlay toPlay) {
    // Disarming also drops what the clock was told while disarmed.
    Disarm();
    if (toPlay.tempoScale)
        userControls_.SetTempoScale(*toPlay.tempoScale);
    if (toPlay.transposition)
        userControls_.SetTransposition(*toPlay.transposition);
    auto song = std::make_shared<LoadedSong>(std::move(toPlay), userControls_, *clock_);
    // Without the song's mutex: the song may still have to be built.
    filler_.Select(song);
    std::lock_guard lock(songMutex_);
    song_ = std::move(song);
    follow_ = nullptr;
    retired_ = nullptr;
    filler_.SetNext(nullptr);
    startTick_ = song_->startTick;
    song_->playTracker.Seek(startTick_);
    sounding_.reset();
    playedSinceArming_ = false;
    isAtPause_ = false;
    hasSongStartTime_ = false;
    songStarted_ = false;
    fault_.clear();
    axis_->UpdateToNewSong(song_->plan.key, song_->plan.song->song.GetResolution());
    LocateTimeCode(Place());
}

void PlaybackHost::LocateTimeCode(std::uint32_t tick) {
    if (timeCode_)
        timeCode_->Locate(axis_->ConvertTickIndexToSeconds(tick));
}

void PlaybackHost::Follow(std::optional<SongToPlay> next) {
    std::shared_ptr<LoadedSong> song;
    if (next)
        song = std::make_shared<LoadedSong>(std::move(*next), userControls_, *clock_);
    std::shared_ptr<LoadedSong> retired;
    std::lock_guard lock(songMutex_);
    retired = std::move(retired_);
    // What is filled already goes on as it was said when it was filled.
    follow_ = song;
    filler_.SetNext(std::move(song));
}

std::uint64_t PlaybackHost::Play(int countInBars) {
    return StartAt(GetTick(), countInBars);
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
        RequireSong();
        // What rings at a pause belongs to the place that is left.
        notesHaveEnded = std::exchange(panicked_, false) || !wasPlaying || notesHaveEnded;
        isAtPause_ = false;
        // The stream would take notes for sounding on that were ended.
        if (notesHaveEnded)
            sounding_.reset();
        LocateTimeCode(song_->playTracker.RoundDownToNearestClock(tick));
    }
    if (notesHaveEnded) {
        try {
            EndNotes();
        } catch (const std::exception&) {
            // They still count as sounding: the first cycle that plays ends them.
        }
    }
    if (wasPlaying)
        return StartAt(tick, 0);
    std::lock_guard lock(songMutex_);
    startTick_ = song_->playTracker.RoundDownToNearestClock(tick);
    song_->playTracker.Seek(startTick_);
    playedSinceArming_ = false;
    return std::nullopt;
}

std::uint64_t PlaybackHost::StartAt(std::uint32_t tick, int countInBars) {
    Disarm();
    std::uint32_t start = 0;
    std::uint32_t ticksPerClock = 0;
    int clocksPerClick = 0;
    int clockNumber = 0;
    double clockTime = 0;
    {
        std::lock_guard lock(songMutex_);
        RequireSong();
        HowToPlayWithMidiClock& tracker = song_->playTracker;
        start = tracker.RoundDownToNearestClock(tick);
        tracker.Seek(start);
        const bool fromPause = std::exchange(isAtPause_, false) && start == Place();
        ticksPerClock = song_->ticksPerClock;
        clockTime = tracker.GetClockTime();
        clocksPerClick = tracker.GetClocksPerClick();
        clockNumber = tracker.GetClockNumber();
        if (fromPause)
            ResumeFromPause(start, clockTime, clocksPerClick);
        sentClockTime_ = clockTime;
        if (panicked_)
            sounding_.reset();
        panicked_ = false;
        filler_.Start({song_, start, sounding_, deviceIsFresh_, countInBars}, playedState_);
        filler_.SetNext(follow_);
        startTick_ = start;
        playedSinceArming_ = false;
        isCountingIn_ = countInBars > 0;
        if (isCountingIn_) {
            // The clock runs on the spot until the first clock of the music is due.
            ticksPerClock = 0;
            clockNumber = filler_.GetFirstClockNumber();
        }
        if (!std::exchange(songStarted_, true))
            PublishSong();
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
    clock_->ArmPlayback(ticksPerClock, clocksPerClick, clockTime, start, clockNumber);
    clock_->ContinuousMode();
    return arming_;
}

void PlaybackHost::ResumeFromPause(std::uint32_t tick, double& clockTime, int& clocksPerClick) {
    try {
        song_->playTracker.GetCaesuraResumeParams(tick, &clockTime, &clocksPerClick);
    } catch (const std::out_of_range&) {  // within the last beat: what holds there goes on
    }
}

std::uint32_t PlaybackHost::Place() const {
    return sounding_ && playedSinceArming_ ? sounding_->tick : startTick_;
}

void PlaybackHost::Stop() {
    Disarm();
    {
        std::lock_guard lock(songMutex_);
        startTick_ = Place();
        playedSinceArming_ = false;
        isAtPause_ = false;
        isCountingIn_ = false;
        sounding_.reset();
        if (song_) {
            filler_.ReturnTo(song_);
            LocateTimeCode(Place());
        }
    }
    TryEach({[this] { output_->AllNotesOff(); }, [this] { EndNotes(); }});
}

void PlaybackHost::FinishSong() {
    {
        std::lock_guard host(hostMutex_);
        playing_ = false;
    }
    {
        std::lock_guard lock(songMutex_);
        filler_.Stop();
        startTick_ = song_->startTick;
        sounding_.reset();
    }
    // The last buffer has sent all notes off.
    EndNotes();
}

void PlaybackHost::FinishAtPause() {
    std::lock_guard host(hostMutex_);
    playing_ = false;
    std::lock_guard lock(songMutex_);
    filler_.Stop();
    filler_.ReturnTo(song_);
    LocateTimeCode(Place());
}

void PlaybackHost::Panic() {
    {
        std::lock_guard lock(songMutex_);
        panicked_ = true;
        filler_.Restore();
    }
    std::vector<vemo_midi::VoiceEvent> events;
    for (int channel = 0; channel < DeviceState::kChannels; ++channel) {
        events.push_back(ControllerEvent(channel, kDamper, 0));
        events.push_back(ControllerEvent(channel, kAllSoundOff, 0));
    }
    TryEach({[this] { output_->AllNotesOff(); }, [this] { EndNotes(); }, [&] { SendOwnEvents(events); }});
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
    SendEndings(events);
}

/// Sends note-offs that count as played already.
void PlaybackHost::SendEndings(const std::vector<vemo_midi::VoiceEvent>& events) {
    try {
        SendOwnEvents(events);
    } catch (...) {
        // They sound on, for the next one that ends them.
        std::lock_guard lock(songMutex_);
        for (const vemo_midi::VoiceEvent& event : events)
            if ((event.message.status & 0xF0) == 0x80)
                playedState_.Apply({static_cast<std::uint8_t>(event.message.status | 0x10), event.message.data1, 1});
        throw;
    }
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
        RequireSong();
        const bool ringing = playing || sounding_;
        if (!FillsHeardSong()) {
            // The song that is on its way has its own.
            muted ? static_cast<void>(song_->plan.mutedTracks.insert(id))
                  : static_cast<void>(song_->plan.mutedTracks.erase(id));
            if (!muted)
                return;
        } else if (!muted) {
            filler_.Unmute(id, ringing);
            return;
        } else if (!filler_.Mute(id, ringing) || !ringing) {
            return;
        }
        playedState_.AppendNoteOffs(channel, events);
        playedState_.AppendPedalsUp(channel, events);
        for (const vemo_midi::VoiceEvent& event : events)
            playedState_.Apply(event.message);
    }
    TryEach({[&] { SendEndings(events); }, [&] { output_->SendAllNotesOff(id); }});
}

void PlaybackHost::SetTrim(int channel, int trim) {
    std::lock_guard lock(songMutex_);
    if (streams_)
        streams_->SetTrim(static_cast<unsigned short>(channel), static_cast<unsigned char>(trim));
}

void PlaybackHost::SetProgram(int channel, int program) {
    const auto id = static_cast<unsigned short>(channel);
    const auto value = static_cast<unsigned char>(program);
    {
        std::lock_guard lock(songMutex_);
        RequireSong();
        if (FillsHeardSong())
            filler_.SetUserProgram(id, value);
        else
            song_->plan.userPrograms[id] = value;
        playedState_.Apply({static_cast<std::uint8_t>(0xC0 | id), value, 0});
    }
    output_->SetTrackProgramId(id, value);
}

void PlaybackHost::FollowPrograms() {
    std::lock_guard lock(songMutex_);
    RequireSong();
    if (FillsHeardSong())
        filler_.FollowPrograms();
    else
        song_->plan.userPrograms.clear();
}

void PlaybackHost::SetClickIsMuted(bool muted) {
    std::lock_guard lock(songMutex_);
    RequireSong();
    if (song_->plan.click)
        song_->plan.click->muted = muted;
}

void PlaybackHost::NoteOutputLoss() {
    std::lock_guard lock(songMutex_);
    // Of several losses the first: it has heard nothing since.
    if (!lostState_)
        lostState_ = playedState_;
}

void PlaybackHost::NoteOutputReturn() {
    Resend();
    std::lock_guard lock(songMutex_);
    lostState_.reset();
}

void PlaybackHost::Resend() {
    // Not in the next cycle that is filled: until that one plays, the device would play four
    // on what it holds. And no cycle in between, which might end what is struck again here.
    std::lock_guard host(hostMutex_);
    // Nor a panic: what is struck here would sound behind it.
    std::lock_guard output(output_->GetMutex());
    std::vector<vemo_midi::VoiceEvent> events;
    {
        std::lock_guard lock(songMutex_);
        for (int channel = 0; channel < DeviceState::kChannels; ++channel) {
            // A device that kept its power has not heard which notes have ended meanwhile;
            // the first ways are for those that obey one, the last for the rest.
            events.push_back(ControllerEvent(channel, kAllSoundOff, 0));
            events.push_back(ControllerEvent(channel, kAllNotesOff, 0));
            (lostState_ ? *lostState_ : playedState_).AppendNoteOffs(channel, events);
            playedState_.AppendState(channel, events);
            playedState_.AppendNotes(channel, events);
        }
    }
    SendOwnEvents(events);
}

void PlaybackHost::TellPlace() {
    const bool isPlaying = IsPlaying();
    std::lock_guard lock(songMutex_);
    if (song_ && (!isPlaying || isCountingIn_))
        LocateTimeCode(Place());
}

bool PlaybackHost::IsPlaying() const {
    std::lock_guard host(hostMutex_);
    return playing_;
}

bool PlaybackHost::IsCountingIn() const {
    std::lock_guard lock(songMutex_);
    return isCountingIn_;
}

bool PlaybackHost::IsAtPause() const {
    std::lock_guard lock(songMutex_);
    return isAtPause_;
}

std::uint64_t PlaybackHost::GetArming() const {
    std::lock_guard host(hostMutex_);
    return arming_;
}

unsigned int PlaybackHost::GetSongNumber() const {
    std::lock_guard lock(songMutex_);
    return song_ ? song_->plan.number : 0;
}

std::uint32_t PlaybackHost::GetTick() const {
    std::lock_guard lock(songMutex_);
    return Place();
}

std::string PlaybackHost::GetFault() const {
    std::lock_guard lock(songMutex_);
    return fault_;
}

std::uint64_t PlaybackHost::GetPlayedClocks() const {
    std::lock_guard lock(songMutex_);
    return playedClocks_;
}

std::pair<std::size_t, std::size_t> PlaybackHost::GetLoadProgress() const {
    std::lock_guard lock(songMutex_);
    return streams_ ? std::pair(streams_->GetLoaded(), streams_->GetCount()) : std::pair<std::size_t, std::size_t>();
}

std::chrono::nanoseconds PlaybackHost::GetTime() const {
    if (beforeVirtualClock_)
        return static_cast<const OfflineClock&>(*clock_).GetTime();
    return std::chrono::steady_clock::now().time_since_epoch();
}

bool PlaybackHost::WaitForFills(int cycles, std::chrono::milliseconds atMost) const {
    std::unique_lock lock(songMutex_);
    return filled_.wait_for(lock, atMost, [this, cycles] {
        return !filler_.GetIsPlaying() || filler_.GetLastIsFilled() ||
               filler_.GetFilledCount() >= filler_.GetPlayedCount() + static_cast<std::uint64_t>(cycles);
    });
}

// ---- filling, on the queue thread and during priming

void PlaybackHost::FillBuffer(MidiBuffer& buffer) {
    std::lock_guard bufferLock(buffer.GetMutex());
    std::lock_guard lock(songMutex_);
    try {
        filler_.Fill(buffer);
    } catch (const std::exception& error) {
        fault_ = error.what();
    } catch (...) {
        fault_ = "unknown exception";
    }
    if (!fault_.empty())
        filler_.BreakOff(buffer);
    if (beforeVirtualClock_)
        filled_.notify_all();
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
        std::uint32_t ticksPerClock = 0;
        int clockNumber = 0;
        int clocksPerClick = 0;
        double clockTime = 0;
        bool isCountingIn = false;
        {
            std::lock_guard lock(songMutex_);
            HowToPlayWithMidiClock& tracker = song_->playTracker;
            tick = Place();
            ticksPerClock = song_->ticksPerClock;
            clockNumber = tracker.GetClockNumber();
            clocksPerClick = tracker.GetClocksPerClick();
            clockTime = tracker.GetClockTime();
            isCountingIn = isCountingIn_;
            if (!isCountingIn)
                sentClockTime_ = clockTime;
        }
        if (!isCountingIn)  // which stands still anyway
            clock_->SetTickIndex(tick, clockNumber, ticksPerClock, clocksPerClick, clockTime, 0);
    }
    clockIsUnplayed_ = true;
}

PlaybackRecord PlaybackHost::MakeRecord(PlaybackRecord::Kind kind, int transposition) {
    HowToPlayWithMidiClock& tracker = song_->playTracker;
    PlaybackRecord record;
    record.kind = kind;
    record.song = song_->plan.number;
    record.clockNumber = tracker.GetClockNumber();
    record.clocksPerClick = tracker.GetClocksPerClick();
    record.bar = tracker.GetBarBeat().bar();
    record.beat = tracker.GetBarBeat().beat();
    record.tick = tracker.GetTickIndex();
    record.tempo = tracker.GetTempoDouble();
    record.meterBeats = tracker.GetMeter().beats();
    record.meterUnit = tracker.GetMeter().beat_unit();
    record.keySharps = tracker.GetKey().sharps();
    record.keyMinor = tracker.GetKey().minor();
    record.transposition = transposition;
    record.page = tracker.GetPageNumberValue();
    record.hasMarker = !song_->plan.song->log.GetMarkers().empty() && tracker.GetMarkerTickIndex() <= record.tick;
    record.markerTick = record.hasMarker ? tracker.GetMarkerTickIndex() : 0;
    record.time = clockTime_;
    record.displayDelayMilliseconds = *guiDelayMilliseconds_;
    record.sinceStart = hasSongStartTime_ ? clockTime_ - songStartTime_ : std::chrono::nanoseconds(0);
    return record;
}

void PlaybackHost::PublishSong() {
    feed_.Publish(MakeRecord(PlaybackRecord::Kind::kSong, song_->playTracker.GetTranspositionValue()));
}

bool PlaybackHost::CyclePlayed(std::uint32_t tick) {
    clockIsUnplayed_ = false;
    std::unique_lock lock(songMutex_);
    const CycleFiller::Cycle& cycle = filler_.GetOldest();
    for (const std_midi::VoiceMessage& message : cycle.messages)
        playedState_.Apply(message);
    filler_.CountPlayed();
    ++playedClocks_;
    deviceIsFresh_ = false;
    if (cycle.countInLeft > 0) {
        CountInPlayed(cycle, lock);
        return false;
    }
    if (cycle.song != song_)
        GoOnTo(cycle.song, lock);
    const signed char transposition = cycle.transposition;
    const auto timeCode = cycle.timeCode;
    const std::uint32_t next = tick + song_->ticksPerClock;
    sounding_ = {next, transposition};
    playedSinceArming_ = true;
    if (!std::exchange(hasSongStartTime_, true))
        songStartTime_ = clockTime_;
    // The tracker stands at this cycle; only now does it move on.
    HowToPlayWithMidiClock& tracker = song_->playTracker;
    PlaybackRecord record = MakeRecord(PlaybackRecord::Kind::kClock, transposition);
    record.tick = tick;
    record.firstAfterStart = std::exchange(firstClockOfArming_, false);

    tracker.AdvanceToTickIndexWithLock(next, lock);
    tracker.AdvanceToTickIndexWithLock(next, lock);
    const double clockTime = tracker.GetClockTime();
    const bool clockTimeChanged = clockTime != sentClockTime_;
    sentClockTime_ = clockTime;
    // A change at the next tick already shapes the interval that leads there.
    record.clockSeconds = clockTime;
    const bool pauses = std::binary_search(song_->pauses.begin(), song_->pauses.end(), next);
    isAtPause_ = pauses;
    lock.unlock();
    if (clockTimeChanged && !pauses)
        clock_->SetClockTime(clockTime, next);
    output_->DoTimeCodeCallback(timeCode.first, timeCode.second, clockTime);
    feed_.Publish(record);
    return pauses;
}

void PlaybackHost::CountInPlayed(const CycleFiller::Cycle& cycle, std::unique_lock<std::mutex>& lock) {
    HowToPlayWithMidiClock& tracker = song_->playTracker;
    PlaybackRecord record = MakeRecord(PlaybackRecord::Kind::kCountIn, cycle.transposition);
    record.clockNumber = cycle.countInClockNumber;
    record.countInClocks = cycle.countInLeft;
    record.countInClocksPerBar = cycle.countInClocksPerBar;
    record.firstAfterStart = std::exchange(firstClockOfArming_, false);
    const std::uint32_t tick = cycle.tick;
    const double clockTime = tracker.GetClockTime();
    const bool clockTimeChanged = clockTime != sentClockTime_;
    sentClockTime_ = clockTime;
    record.clockSeconds = clockTime;
    const int clockNumber = tracker.GetClockNumber();
    const int clocksPerClick = tracker.GetClocksPerClick();
    const std::uint32_t ticksPerClock = song_->ticksPerClock;
    const bool isLast = cycle.countInLeft == 1;
    if (isLast)
        isCountingIn_ = false;
    lock.unlock();
    if (isLast)
        clock_->SetTickIndex(tick, clockNumber, ticksPerClock, clocksPerClick, clockTime, tick);
    else if (clockTimeChanged)
        clock_->SetClockTime(clockTime, tick);
    feed_.Publish(record);
}

/// The first cycle of the next song is playing: what is heard is that song from now on.
void PlaybackHost::GoOnTo(const std::shared_ptr<LoadedSong>& song, std::unique_lock<std::mutex>& lock) {
    PlaybackRecord end;
    end.kind = PlaybackRecord::Kind::kEnd;
    end.song = song_->plan.number;
    end.time = clockTime_;
    feed_.Publish(end);
    retired_ = std::move(song_);
    song_ = song;
    axis_->UpdateToNewSong(song_->plan.key, song_->plan.song->song.GetResolution());
    follow_ = nullptr;
    startTick_ = song_->startTick;
    songStartTime_ = clockTime_;
    hasSongStartTime_ = true;
    if (song_->plan.tempoScale)
        userControls_.SetTempoScale(*song_->plan.tempoScale);
    if (song_->plan.transposition)
        userControls_.SetTransposition(*song_->plan.transposition);
    filler_.SongIsHeard();
    HowToPlayWithMidiClock& tracker = song_->playTracker;
    tracker.Seek(startTick_);
    const double clockTime = tracker.GetClockTime();
    const int clocksPerClick = tracker.GetClocksPerClick();
    const int clockNumber = tracker.GetClockNumber();
    sentClockTime_ = clockTime;
    PublishSong();
    const std::uint32_t start = startTick_;
    const std::uint32_t ticksPerClock = song_->ticksPerClock;
    const std::uint64_t token = song_->plan.token;
    lock.unlock();
    // From this clock on: it has yet to move on from it.
    clock_->SetTickIndex(start, clockNumber, ticksPerClock, clocksPerClick, clockTime, 0);
    if (wentOn_)
        wentOn_(token);
    lock.lock();
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
