#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "midi/midi_output.h"
#include "midi/vemo_midi_export.h"
#include "midi/win32/delayed_gui.h"
#include "midi/win32/midi_output_ports_win32.h"
#include "midi/win32/win_synth.h"

/// The platform's output: plays the next ready cycle buffer on every MIDI clock
/// into one MIDI stream, and stops at the last buffer or at a caesura.
///
/// Owner, callbacks: see MidiOutput. The clock may outlive it: a clock already on
///          its way finds the output gone.
/// Threads: ProcessMidiClock() on the clock's thread; the rest on host threads.
///          CreateSynthOutput() while playback is stopped, after Initialize().
/// Lock:    the host mutex for the whole of ProcessMidiClock(), also while it
///          waits up to a second for a late fill.
/// Units:   the display's delay in seconds, 0 to 0.25 in steps of 0.01, 0.22 at
///          first.
/// Errors:  MidiDeviceUnavailable when no stream can be opened. Whatever goes
///          wrong on a clock is logged, and the next clock tries again.
class VEMO_MIDI_EXPORT MidiOutputWin32 : public MidiOutput {
public:
    MidiOutputWin32(std::uint8_t portCount, FillMidiBufferCallback fillCallback, DownbeatCallback downbeatCallback,
                    StoppedCallback stoppedCallback, ClockIsActiveCallback clockIsActiveCallback,
                    CheckCaesuraCallback checkCaesuraCallback, MidiClock& clock, std::recursive_mutex* hostMutex);
    ~MidiOutputWin32() override;

    /// Opens the stream on the device whose index the name is, written in digits,
    /// or whose display name it is; any other name, and none, means device 0. A
    /// stream open before is closed once the new one is open.
    void CreateSynthOutput(const std::string& name) override;
    void CreateAudioUnitOutput(const zell::ptr_map<std::uint16_t, vemo_midi::VoiceTrack>& tracks) override;
    void CreateTarvikOutput() override;
    /// Also gives back returned stream buffers and drops pending downbeats; the
    /// latter even where the former fails.
    void DisarmPlayback() override;
    void ResetMidiOutput() override;
    void DecreaseGuiDelay() override;
    void IncreaseGuiDelay() override;
    MidiOutputPorts& GetPorts() override;

    void ProcessMidiClock(double beatsPerMinute);

private:
    /// Which stream the ports are connected to. Its place among the members makes
    /// it disconnect after the delayed callbacks have ended and before the stream
    /// closes.
    class SynthConnection {
    public:
        SynthConnection() = default;
        SynthConnection(const SynthConnection&) = delete;
        SynthConnection& operator=(const SynthConnection&) = delete;
        /// What goes wrong is logged.
        ~SynthConnection();
        void Record(WinSynth& synth, MidiOutputPortsWin32& ports);
        void Disconnect();

    private:
        WinSynth* synth_ = nullptr;
        MidiOutputPortsWin32* ports_ = nullptr;
    };
    struct ClockGate;

    void PlayNextBuffer(double beatsPerMinute);
    void StopOnClockThread();
    void CloseSynth();
    void ChangeGuiDelay(double secondsDelay);

    MidiOutputPortsWin32 ports_;
    std::unique_ptr<WinSynth> synth_;
    SynthConnection synthConnection_;
    DelayedGui delayedGui_;
    // Shared with the callback that the clock holds.
    std::shared_ptr<ClockGate> clockGate_;
};
