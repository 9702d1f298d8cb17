#include "midi/midi_output.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <system_error>

#include "midi/invalid_voice_event.h"
#include "vemo_core/callback_dispatcher.h"
#include "vemo_core/exception_log.h"
#include "zell/cout_buffer.h"
#include "zell/errors.h"
#include "zell/format.h"
#include "zell/stack_trace.h"
#include "zell/thread_names.h"

namespace {

constexpr char kSource[] = "midi/Sources/midi_output";
constexpr std::uint16_t kDataBufferSize = 65535;

constexpr std::uint8_t kControlChange = 0xB0;
constexpr std::uint8_t kProgramChange = 0xC0;
constexpr std::uint8_t kBankSelect = 0;
constexpr std::uint8_t kChannelVolume = 7;
constexpr std::uint8_t kPan = 10;
constexpr std::uint8_t kResetAllControllers = 121;
constexpr std::uint8_t kAllNotesOff = 123;

}  // namespace

MidiOutput::MidiOutput(FillMidiBufferCallback fillCallback, DownbeatCallback downbeatCallback,
                       StoppedCallback stoppedCallback, ClockIsActiveCallback clockIsActiveCallback,
                       CheckCaesuraCallback checkCaesuraCallback, MidiClock& clock, std::recursive_mutex* hostMutex)
    : fillMidiBufferCallback_(std::move(fillCallback)),
      downbeatCallback_(std::move(downbeatCallback)),
      stoppedCallback_(std::move(stoppedCallback)),
      clockIsActiveCallback_(std::move(clockIsActiveCallback)),
      checkCaesuraCallback_(std::move(checkCaesuraCallback)),
      clock_(clock),
      hostMutex_(hostMutex),
      timeCodeCallback_(std::make_shared<const TimeCodeCallback>([](double, double, double) {})) {}

MidiOutput::~MidiOutput() = default;

void MidiOutput::ResetMidiOutput() {}
void MidiOutput::DecreaseGuiDelay() {}
void MidiOutput::IncreaseGuiDelay() {}
void MidiOutput::MidiRestart() {}

std::vector<std::string> MidiOutput::GetTrackManuAndSubType(std::uint16_t) {
    return {};
}

void MidiOutput::SetChannelDrumMode(std::uint8_t, bool on) {
    if (on)
        throw zell::NotImplementedError("Channel Drum Mode Not Supported");
}

void MidiOutput::SetGlobalReverb(float) {
    throw zell::NotImplementedError("Global Reverb Not Supported");
}

// ---- set-up

std::shared_ptr<MidiBuffer> MidiOutput::CreateRegisteredBuffer(std::uint8_t portCount, const std::string& name) {
    std::shared_ptr<MidiBuffer> buffer(CreateMidiBuffer(portCount, kDataBufferSize, name));
    GetPorts().RegisterMidiBuffer(buffer);
    return buffer;
}

void MidiOutput::Initialize(std::uint8_t portCount) {
    for (int i = 0; i < kRingSize; ++i)
        buffers_.push_back(CreateRegisteredBuffer(portCount, zell::format("Main Buffer %d", i)));
    allNotesOffBuffer_ = CreateRegisteredBuffer(portCount, "allNotesOffBuffer");
    AddAllNotesOff(*allNotesOffBuffer_);
    allCCsOffBuffer_ = CreateRegisteredBuffer(portCount, "allCCsOffBuffer");
    AddAllCCsOff(*allCCsOffBuffer_);
    oneShotBuffer_ = CreateRegisteredBuffer(portCount, "oneShotBuffer");
    queueThread_ = std::make_shared<MidiQueueThread>(*this, threadManager_);
    StartAsyncStoppedThread();
}

void MidiOutput::SetTimeCodeCallback(TimeCodeCallback callback) {
    auto replacement = std::make_shared<const TimeCodeCallback>(std::move(callback));
    std::lock_guard lock(mutex_);
    timeCodeCallback_.swap(replacement);
}

// ---- priming, arming, disarming

void MidiOutput::PrimeBuffers(std::unique_lock<std::recursive_mutex>& hostLock) {
    for (;;) {
        {
            std::unique_lock waiting(threadManager_.waitingMutex_);
            threadManager_.waitingCondition_.wait(waiting, [this] { return threadManager_.waitingDisarms_ == 0; });
        }
        std::scoped_lock lock(threadManager_.waitingMutex_, mutex_);
        if (threadManager_.waitingDisarms_ != 0)
            continue;
        if (playback_) {
            zell::CoutBuffer() << "PrimeBuffers called with playback_ enabled." << zell::endl;
            zell::PrintStackTrace(20);
            throw std::logic_error("PrimeBuffers() must only be called when playback is stopped.");
        }
        if (!hostLock.owns_lock())
            throw std::system_error(std::make_error_code(std::errc::operation_not_permitted));
        primeBuffersInProgress_ = true;
        buffersNeedPriming_ = true;
        playBufferIndex_ = 0;
        fillBufferIndex_ = 0;
        break;
    }
    hostLock.unlock();
    try {
        std::scoped_lock ring(RingBuffer(0).GetMutex(), RingBuffer(1).GetMutex(), RingBuffer(2).GetMutex(),
                              RingBuffer(3).GetMutex());
        for (int i = 0; i < kRingSize; ++i) {
            MidiBuffer& buffer = GetFillBuffer();
            buffer.Reset();
            if (i == 0)
                buffer.SetIsFirstBuffer();
            fillMidiBufferCallback_(buffer);
            IncrementFillBufferIndex();
        }
    } catch (...) {
        // The ring's buffers are unlocked by now: whoever holds the host mutex may
        // be waiting for one of them.
        hostLock.lock();
        throw;
    }
    hostLock.lock();
    std::lock_guard lock(mutex_);
    primeBuffersInProgress_ = false;
    buffersNeedPriming_ = false;
}

bool MidiOutput::ArmPlayback() {
    std::lock_guard lock(mutex_);
    if (playback_)
        return true;
    if (primeBuffersInProgress_ || buffersNeedPriming_)
        return false;
    playback_ = true;
    threadManager_.Resume();
    return true;
}

void MidiOutput::DisarmPlayback() {
    clock_.DisarmPlayback();
    {
        std::unique_lock waiting(threadManager_.waitingMutex_, std::defer_lock);
        std::unique_lock lock(mutex_, std::defer_lock);
        std::lock(waiting, lock);
        playback_ = false;
        // A clock that waits for its cycle holds the host mutex: it need not wait for
        // what will not be played.
        for (const std::shared_ptr<MidiBuffer>& buffer : buffers_)
            buffer->AbandonOutput();
        // Already here, so that nobody arms the stale ring while this waits.
        buffersNeedPriming_ = true;
        if (!threadManager_.queueIsWaiting_ && !threadManager_.ended_) {
            const std::uint64_t parksBefore = threadManager_.parkCount_;
            ++threadManager_.waitingDisarms_;
            GetFillBuffer().SetHasData(false);
            lock.unlock();
            threadManager_.waitingCondition_.wait(waiting, [this, parksBefore] {
                return threadManager_.parkCount_ != parksBefore || threadManager_.ended_;
            });
            // Not the one while holding the other: the queue thread takes them the
            // other way round.
            waiting.unlock();
            std::lock(waiting, lock);
            --threadManager_.waitingDisarms_;
            threadManager_.waitingCondition_.notify_all();
        }
    }
    notify::callbackDispatcher.Notify(notify::names::disarmedPlayback);
}

bool MidiOutput::PlaybackIsActive() const {
    std::lock_guard lock(mutex_);
    return playback_;
}

bool MidiOutput::GetPrimeBuffersInProgress() const {
    std::lock_guard lock(mutex_);
    return primeBuffersInProgress_;
}

void MidiOutput::QueueWaitForPlayback() {
    if (PlaybackIsActive())
        return;
    std::unique_lock resume(threadManager_.resumeMutex_, std::defer_lock);
    {
        std::unique_lock lock(mutex_, std::defer_lock);
        std::lock(resume, lock);
        // An arm between the first look and the locks has already sent its signal.
        if (playback_ || threadManager_.mustExit_)
            return;
        threadManager_.SignalParked();
    }
    threadManager_.resumeCondition_.wait(
        resume, [this] { return !threadManager_.queueIsWaiting_ || threadManager_.mustExit_; });
}

void MidiOutput::Seek(std::uint32_t tickIndex) {
    std::lock_guard lock(mutex_);
    tickIndex_ = tickIndex;
}

std::uint32_t MidiOutput::GetTickIndex() const {
    std::lock_guard lock(mutex_);
    return tickIndex_;
}

void MidiOutput::SetBpmAtTickIndex(double beatsPerMinute, std::uint32_t tickIndex) {
    std::lock_guard lock(mutex_);
    bpmAtTickIndex_[bpmCount_++ % kRememberedTempos] = {tickIndex, beatsPerMinute};
    tickIndex_ = tickIndex;
}

std::optional<double> MidiOutput::GetBpmAtTickIndex(std::uint32_t tickIndex) const {
    std::lock_guard lock(mutex_);
    for (std::size_t back = 1; back <= std::min(bpmCount_, kRememberedTempos); ++back) {
        const auto& [tick, bpm] = bpmAtTickIndex_[(bpmCount_ - back) % kRememberedTempos];
        if (tick == tickIndex)
            return bpm;
    }
    return std::nullopt;
}

void MidiOutput::PrepareForExit() {
    clock_.DisarmPlayback();
    std::lock_guard lock(mutex_);
    playback_ = false;
}

// ---- the ring

MidiBuffer& MidiOutput::RingBuffer(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= buffers_.size())
        throw std::out_of_range("invalid vector subscript");
    return *buffers_[static_cast<std::size_t>(index)];
}

int MidiOutput::GetFillBufferIndex() const {
    std::lock_guard lock(mutex_);
    return fillBufferIndex_;
}

int MidiOutput::GetPlayBufferIndex() const {
    std::lock_guard lock(mutex_);
    return playBufferIndex_;
}

MidiBuffer& MidiOutput::GetFillBuffer() {
    return RingBuffer(GetFillBufferIndex());
}
MidiBuffer& MidiOutput::GetPlayBuffer() {
    return RingBuffer(GetPlayBufferIndex());
}

void MidiOutput::IncrementRingIndex(int& index) {
    std::lock_guard lock(mutex_);
    if (++index > kRingSize - 1)
        index = 0;
}

void MidiOutput::IncrementFillBufferIndex() {
    IncrementRingIndex(fillBufferIndex_);
}
void MidiOutput::IncrementPlayBufferIndex() {
    IncrementRingIndex(playBufferIndex_);
}

// ---- the host's callbacks

void MidiOutput::DoFillMidiBufferCallback(MidiBuffer& buffer, bool isFirst) {
    buffer.Reset();
    if (isFirst)
        buffer.SetIsFirstBuffer();
    fillMidiBufferCallback_(buffer);
}

void MidiOutput::DoDownbeatCallback(std::uint32_t tickIndex) {
    downbeatCallback_(tickIndex);
}
bool MidiOutput::DoCheckCaesuraCallback(std::uint32_t tickIndex) {
    return checkCaesuraCallback_(tickIndex);
}
void MidiOutput::DoClockIsActiveCallback() {
    clockIsActiveCallback_();
}
void MidiOutput::DoStoppedCallback() {
    stoppedCallback_();
}

void MidiOutput::DoTimeCodeCallback(double seconds, double nextSeconds, double clockTimeSeconds) {
    try {
        std::shared_ptr<const TimeCodeCallback> callback;
        {
            std::lock_guard lock(mutex_);
            callback = timeCodeCallback_;
        }
        (*callback)(seconds, nextSeconds, clockTimeSeconds);
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
}

// ---- silencing and injected messages

void MidiOutput::SendAndReport(MidiBuffer& buffer, const char* operation) {
    try {
        GetPorts().SendMidiBuffer(buffer);
    } catch (const InvalidVoiceEvent&) {
        zell::CoutBuffer() << "InvalidVoiceEvent " << operation << zell::endl;
    }
}

void MidiOutput::SendSilencingBuffer(MidiBuffer& buffer, void (*fill)(MidiBuffer&), const char* operation) {
    std::scoped_lock lock(buffer.GetMutex(), mutex_);
    // Empty where its stream buffer was never returned and had to be replaced: a
    // silencing buffer that silences nothing is worse than none.
    if (buffer.GetPortEventCount(0) == 0)
        fill(buffer);
    SendAndReport(buffer, operation);
}

void MidiOutput::AllNotesOff() {
    SendSilencingBuffer(*allNotesOffBuffer_, &AddAllNotesOff, "MidiOutput::AllNotesOff");
}
void MidiOutput::AllCCsOff() {
    SendSilencingBuffer(*allCCsOffBuffer_, &AddAllCCsOff, "MidiOutput::AllCCsOff");
}

std::uint8_t MidiOutput::PortOfTrack(std::uint16_t trackId) const {
    const unsigned int port = trackId >> 4;
    if (port >= oneShotBuffer_->GetPortCount())
        throw std::out_of_range("invalid vector subscript");
    return static_cast<std::uint8_t>(port);
}

void MidiOutput::InjectSingleEvent(std::uint8_t status, std::uint16_t trackId, std::uint8_t data1, std::uint8_t data2) {
    const std::uint8_t port = PortOfTrack(trackId);
    std::scoped_lock lock(mutex_, oneShotBuffer_->GetMutex());
    oneShotBuffer_->Reset();
    oneShotBuffer_->AddEventToBuffer(port, {0, status, trackId, data1, data2});
    oneShotBuffer_->DoneAddingEventsToBuffer();
    SendAndReport(*oneShotBuffer_, "MidiOutput::InjectSingleEvent");
}

void MidiOutput::SendAllNotesOff(std::uint16_t trackId) {
    InjectSingleEvent(kControlChange, trackId, kAllNotesOff, 0);
    InjectSingleEvent(kControlChange, trackId, kResetAllControllers, 0);
}

void MidiOutput::SetTrackVolume(std::uint16_t trackId, std::uint8_t value) {
    InjectSingleEvent(kControlChange, trackId, kChannelVolume, value);
}

void MidiOutput::SetTrackPan(std::uint16_t trackId, std::uint8_t value) {
    InjectSingleEvent(kControlChange, trackId, kPan, value);
}

void MidiOutput::SetTrackBank(std::uint16_t trackId, std::uint8_t value) {
    InjectSingleEvent(kControlChange, trackId, kBankSelect, value);
}

void MidiOutput::SetTrackProgramId(std::uint16_t trackId, std::uint8_t program) {
    InjectSingleEvent(kProgramChange, trackId, program, 0);
}

template <class MakeEvent>
void MidiOutput::SendToAllTracks(const std::map<std::uint16_t, std::uint8_t>& values, const char* operation,
                                 MakeEvent makeEvent) {
    for (const auto& [trackId, value] : values)
        PortOfTrack(trackId);
    std::scoped_lock lock(mutex_, oneShotBuffer_->GetMutex());
    oneShotBuffer_->Reset();
    for (const auto& [trackId, value] : values)
        oneShotBuffer_->AddEventToBuffer(PortOfTrack(trackId), makeEvent(trackId, value));
    oneShotBuffer_->DoneAddingEventsToBuffer();
    SendAndReport(*oneShotBuffer_, operation);
}

void MidiOutput::SetAllTracksCc(const std::map<std::uint16_t, std::uint8_t>& values, std::uint8_t controller) {
    SendToAllTracks(values, "MidiOutput::SetAllTracksCc", [controller](std::uint16_t trackId, std::uint8_t value) {
        return vemo_midi::VoiceEvent(0, kControlChange, trackId, controller, value);
    });
}

void MidiOutput::SetAllTracksVolume(const std::map<std::uint16_t, std::uint8_t>& values) {
    SetAllTracksCc(values, kChannelVolume);
}

void MidiOutput::SetAllTracksPan(const std::map<std::uint16_t, std::uint8_t>& values) {
    SetAllTracksCc(values, kPan);
}

void MidiOutput::SetAllTracksProgramId(const std::map<std::uint16_t, std::uint8_t>& programs) {
    SendToAllTracks(programs, "MidiOutput::SetAllTracksProgramId", [](std::uint16_t trackId, std::uint8_t program) {
        return vemo_midi::VoiceEvent(0, kProgramChange, trackId, program, 0);
    });
}

// ---- the threads' end, and the async-stopped thread

void MidiOutput::ExitThreads() {
    {
        std::lock_guard lock(mutex_);
        playback_ = false;
    }
    {
        std::lock_guard lock(asyncStoppedMutex_);
        exitAsyncStoppedThread_ = true;
    }
    notify::callbackDispatcher.RemoveCallbacksForTarget(this);
    if (!queueThread_)
        return;
    {
        MidiBuffer& buffer = GetPlayBuffer();
        std::lock_guard lock(buffer.GetMutex());
        buffer.SetHasData(true);
    }
    queueThread_->Exit();
    queueThread_->Join();
    // Again: where the clock waits for a late fill, the buffer that it plays is the
    // one that joining has just marked empty.
    GetPlayBuffer().SetHasData(true);
    {
        std::lock_guard lock(asyncStoppedMutex_);
        asyncStoppedCondition_.notify_all();
    }
    if (asyncStoppedThread_.joinable())
        asyncStoppedThread_.join();
}

void MidiOutput::StartAsyncStoppedThread() {
    asyncStoppedThread_ = std::thread([this] { RunAsyncStoppedThread(); });
}

void MidiOutput::RunAsyncStoppedThread() {
    zell::threadNames.SetNameOfCurrentThread("MidiOutput::AsyncStoppedThread");
    try {
        AsyncStoppedRunLoop();
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
}

void MidiOutput::SignalAsyncStoppedCallback() {
    std::lock_guard lock(asyncStoppedMutex_);
    ++pendingStops_;
    asyncStoppedCondition_.notify_one();
}

void MidiOutput::AsyncStoppedRunLoop() {
    std::unique_lock lock(asyncStoppedMutex_);
    for (;;) {
        asyncStoppedCondition_.wait(lock, [this] { return exitAsyncStoppedThread_ || pendingStops_ > 0; });
        if (exitAsyncStoppedThread_)
            return;
        --pendingStops_;
        lock.unlock();
        stoppedCallback_();
        lock.lock();
    }
}
