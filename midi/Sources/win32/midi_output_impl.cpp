#include "midi/win32/midi_output_win32.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <exception>
#include <string_view>
#include <utility>

#include "midi/invalid_voice_event.h"
#include "midi/win32/device_diagnostics.h"
#include "vemo_core/exception_log.h"
#include "vemo_core/gui_dispatcher.h"
#include "zell/cout_buffer.h"

namespace {

constexpr char kSource[] = "midi/Sources/win32/midi_output_impl";
constexpr double kInitialGuiDelaySeconds = 0.22;
constexpr double kLongestGuiDelaySeconds = 0.25;
constexpr double kGuiDelayStepSeconds = 0.01;
// No device: an index too large to parse must not turn into the platform's
// mapper, which is the largest index of all.
constexpr UINT kNoSuchDevice = 0xFFFF'FFFE;

UINT SelectOutputDevice(const std::string& name) {
    if (!name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        UINT index = 0;
        const auto parsed = std::from_chars(name.data(), name.data() + name.size(), index);
        return parsed.ec == std::errc() ? std::min(index, kNoSuchDevice) : kNoSuchDevice;
    }
    const UINT count = name.empty() ? 0 : midiOutGetNumDevs();
    for (UINT index = 0; index < count; ++index) {
        MIDIOUTCAPSW capabilities = {};
        if (midiOutGetDevCapsW(index, &capabilities, sizeof(capabilities)) == MMSYSERR_NOERROR &&
            GetProductName(capabilities) == name)
            return index;
    }
    return 0;
}

}  // namespace

struct MidiOutputWin32::ClockGate {
    std::recursive_mutex& hostMutex;
    MidiOutputWin32* output;  // guarded by hostMutex; null once the output is going

    void Pass(double beatsPerMinute) {
        std::lock_guard lock(hostMutex);
        if (output != nullptr)
            output->ProcessMidiClock(beatsPerMinute);
    }
    void Close() {
        std::lock_guard lock(hostMutex);
        output = nullptr;
    }
};

MidiOutputWin32::SynthConnection::~SynthConnection() {
    try {
        Disconnect();
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
}

void MidiOutputWin32::SynthConnection::Record(WinSynth& synth, MidiOutputPortsWin32& ports) {
    synth_ = &synth;
    ports_ = &ports;
}

void MidiOutputWin32::SynthConnection::Disconnect() {
    WinSynth* const synth = std::exchange(synth_, nullptr);
    if (synth != nullptr)
        std::exchange(ports_, nullptr)->DisconnectSynth(*synth);
}

MidiOutputWin32::MidiOutputWin32(std::uint8_t portCount, FillMidiBufferCallback fillCallback,
                                 DownbeatCallback downbeatCallback, StoppedCallback stoppedCallback,
                                 ClockIsActiveCallback clockIsActiveCallback, CheckCaesuraCallback checkCaesuraCallback,
                                 MidiClock& clock, std::recursive_mutex* hostMutex)
    : MidiOutput(std::move(fillCallback), std::move(downbeatCallback), std::move(stoppedCallback),
                 std::move(clockIsActiveCallback), std::move(checkCaesuraCallback), clock, hostMutex),
      ports_(portCount),
      delayedGui_(downbeatCallback_, kInitialGuiDelaySeconds),
      clockGate_(std::make_shared<ClockGate>(*hostMutex, this)) {
    clock_.SetMidiClockCallback([gate = clockGate_](double beatsPerMinute) { gate->Pass(beatsPerMinute); });
}

MidiOutputWin32::~MidiOutputWin32() {
    ExitThreads();
    clockGate_->Close();
}

void MidiOutputWin32::CloseSynth() {
    if (!synth_)
        return;
    const HMIDIOUT handle = synth_->GetStreamHandle();
    synth_.reset();
    ports_.DropQuarantinedDataBuffers(handle);
}

void MidiOutputWin32::CreateSynthOutput(const std::string& name) {
    auto opened = std::make_unique<WinSynth>(SelectOutputDevice(name));
    try {
        synthConnection_.Disconnect();
    } catch (const std::exception& error) {
        // The old stream goes either way, and with it what still holds on to it.
        VemoLogException(error.what(), kSource, __LINE__);
    }
    CloseSynth();
    // Recorded before the ports are connected: where that fails halfway, they refer
    // to a stream that is still there.
    synth_ = std::move(opened);
    synthConnection_.Record(*synth_, ports_);
    ports_.ConnectSynth(*synth_);
}

void MidiOutputWin32::CreateAudioUnitOutput(const zell::ptr_map<std::uint16_t, vemo_midi::VoiceTrack>&) {}
void MidiOutputWin32::CreateTarvikOutput() {}

void MidiOutputWin32::DisarmPlayback() {
    try {
        MidiOutput::DisarmPlayback();
        if (synth_)
            ports_.CleanUpQuarantinedDataBuffers(synth_->GetStreamHandle());
    } catch (...) {
        delayedGui_.Reset();
        throw;
    }
    delayedGui_.Reset();
}

void MidiOutputWin32::ResetMidiOutput() {
    std::lock_guard lock(mutex_);
    delayedGui_.Reset();
}

void MidiOutputWin32::ChangeGuiDelay(double secondsDelay) {
    delayedGui_.SetSecondsDelay(secondsDelay);
    notify::guiDispatcher.SendGuiDelayMessage(static_cast<int>(std::lround(secondsDelay * 1000)));
}

void MidiOutputWin32::IncreaseGuiDelay() {
    ChangeGuiDelay(std::min(kLongestGuiDelaySeconds, delayedGui_.GetSecondsDelay() + kGuiDelayStepSeconds));
}

void MidiOutputWin32::DecreaseGuiDelay() {
    ChangeGuiDelay(std::max(0.0, delayedGui_.GetSecondsDelay() - kGuiDelayStepSeconds));
}

MidiOutputPorts& MidiOutputWin32::GetPorts() {
    return ports_;
}

void MidiOutputWin32::ProcessMidiClock(double beatsPerMinute) {
    try {
        PlayNextBuffer(beatsPerMinute);
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
}

void MidiOutputWin32::StopOnClockThread() {
    try {
        DisarmPlayback();
    } catch (const std::exception& error) {
        // Playback has stopped all the same, and the host has to hear of it.
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
    SignalAsyncStoppedCallback();
}

void MidiOutputWin32::PlayNextBuffer(double beatsPerMinute) {
    std::lock_guard hostLock(*hostMutex_);
    clockIsActiveCallback_();
    if (!PlaybackIsActive())
        return;
    MidiBuffer& buffer = GetPlayBuffer();
    if (!buffer.WaitUntilReadyForOutput())
        return;

    std::uint32_t tickIndex = 0;
    {
        std::unique_lock lock(mutex_, std::defer_lock);
        std::unique_lock bufferLock(buffer.GetMutex(), std::defer_lock);
        std::lock(lock, bufferLock);
        if (!PlaybackIsActive())
            return;
        const int clockNumber = buffer.GetClockNumber();
        if (buffer.GetIsLastBuffer()) {
            AllNotesOff();
            bufferLock.unlock();
            lock.unlock();
            StopOnClockThread();
            return;
        }
        if (buffer.GetShouldSendAllNotesOff())
            AllNotesOff();
        else if (buffer.GetShouldSendAllCCsOff())
            AllCCsOff();
        SendAndReport(buffer, "MidiOutputWin32::ProcessMidiClock");
        buffer.SendProgramChanges();
        tickIndex = buffer.GetTickIndex();
        SetBpmAtTickIndex(beatsPerMinute, tickIndex);
        if (clockNumber == 0)
            delayedGui_.SignalDelayedCallback(tickIndex);
        buffer.SetHasData(false);
        IncrementPlayBufferIndex();
    }
    if (checkCaesuraCallback_(tickIndex))
        StopOnClockThread();
}
