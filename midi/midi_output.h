#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "midi/midi_buffer.h"
#include "midi/midi_clock.h"
#include "midi/midi_output_ports.h"
#include "midi/midi_queue_thread.h"
#include "midi/midi_thread_manager.h"
#include "midi/vemo_midi_export.h"
#include "vemo_core/voice_track.h"
#include "zell/ptr_map.h"

/// Playback: a ring of four cycle buffers that a queue thread fills ahead of time
/// and that the clock plays, one per MIDI clock; and everything that is sent
/// outside the song: silencing, volume, pan, bank and program of a track.
///
/// Owner:   the host, as a MidiOutputWin32. It outlives nothing that it refers to:
///          the clock and what the callbacks use stay until after its destruction,
///          the host mutex until after the clock's. It is never destroyed with the host mutex held, nor
///          from one of its callbacks.
/// Threads: set-up, priming and arming on host threads, under the host mutex held
///          once; disarming on host threads and the clock thread, two at once too;
///          injected messages on host threads.
/// Lock:    the host mutex, then GetMutex() jointly with a cycle buffer's mutex,
///          then a buffer's has-data mutex. DisarmPlayback() is never called with
///          GetMutex() held, nor from a receiver of
///          notify::names::currentProgramIds: it waits for the queue thread.
/// Units:   ticks of the song; track id >> 4 is the port, track id & 0x0F the
///          channel.
/// Errors:  std::logic_error for priming while armed; std::out_of_range "invalid
///          vector subscript" for a track on a port that does not exist, before
///          anything is sent; what the ports throw passes on with every lock
///          released, an InvalidVoiceEvent is reported instead.
///
/// The callbacks, and what they must not do:
/// - fill (queue thread, with no lock of the engine held; during PrimeBuffers() on
///   the caller's thread, with the ring's buffers locked and the host mutex
///   released): fills one cycle and hands it over with SetHasData(true). It never
///   takes the host mutex, never disarms, primes or destroys the output. A filler
///   that leaves a buffer without SetHasData(true) loses that cycle.
/// - downbeat (delayed-callback thread, no lock held): a click has been heard.
/// - stopped (async-stopped thread, no lock held): playback ended by itself. It
///   never destroys the output.
/// - clock-is-active and check-caesura (clock thread, host mutex held): every
///   clock; after every played cycle, with its tick, whether to halt.
/// - time code: whichever thread calls DoTimeCodeCallback().
class VEMO_MIDI_EXPORT MidiOutput {
public:
    using FillMidiBufferCallback = std::function<void(MidiBuffer&)>;
    using DownbeatCallback = std::function<void(std::uint32_t tickIndex)>;
    using StoppedCallback = std::function<void()>;
    using ClockIsActiveCallback = std::function<void()>;
    using CheckCaesuraCallback = std::function<bool(std::uint32_t tickIndex)>;
    using TimeCodeCallback = std::function<void(double, double, double)>;

    MidiOutput(FillMidiBufferCallback fillCallback, DownbeatCallback downbeatCallback, StoppedCallback stoppedCallback,
               ClockIsActiveCallback clockIsActiveCallback, CheckCaesuraCallback checkCaesuraCallback, MidiClock& clock,
               std::recursive_mutex* hostMutex);
    MidiOutput(const MidiOutput&) = delete;
    MidiOutput& operator=(const MidiOutput&) = delete;
    virtual ~MidiOutput();

    virtual void CreateSynthOutput(const std::string& name) = 0;
    virtual void CreateAudioUnitOutput(const zell::ptr_map<std::uint16_t, vemo_midi::VoiceTrack>& tracks) = 0;
    virtual void CreateTarvikOutput() = 0;
    /// Stops the clock and the queue thread and waits until the latter has parked
    /// or ended. What the ring holds is stale afterwards.
    virtual void DisarmPlayback();
    virtual void ResetMidiOutput();
    virtual void DecreaseGuiDelay();
    virtual void IncreaseGuiDelay();
    virtual std::vector<std::string> GetTrackManuAndSubType(std::uint16_t trackId);
    /// zell::NotImplementedError when on.
    virtual void SetChannelDrumMode(std::uint8_t channel, bool on);
    /// Always zell::NotImplementedError.
    virtual void SetGlobalReverb(float reverb);
    virtual MidiOutputPorts& GetPorts() = 0;

    /// Once, before anything that touches a buffer: builds the ring and starts the
    /// two threads.
    void Initialize(std::uint8_t portCount);
    /// Replaces the callback that does nothing.
    void SetTimeCodeCallback(TimeCodeCallback callback);

    /// Fills the ring anew. hostLock is owned by the caller (else std::system_error,
    /// operation not permitted); it is released during the fills and owned again
    /// afterwards, also after a throw. A fill that throws leaves the output
    /// unprimed.
    void PrimeBuffers(std::unique_lock<std::recursive_mutex>& hostLock);
    /// False, and nothing changed, unless primed since the last disarm. Does not
    /// touch the clock.
    bool ArmPlayback();
    bool PlaybackIsActive() const;
    bool GetPrimeBuffersInProgress() const;
    /// Where the queue thread parks while not armed.
    void QueueWaitForPlayback();
    /// Only records the place.
    void Seek(std::uint32_t tickIndex);
    std::uint32_t GetTickIndex() const;
    /// The tempo, in clicks per minute, that the cycle at the tick was played at.
    void SetBpmAtTickIndex(double beatsPerMinute, std::uint32_t tickIndex);
    /// Of the latest cycles; nothing for a tick that was not played lately.
    std::optional<double> GetBpmAtTickIndex(std::uint32_t tickIndex) const;
    /// A last call: nothing is armed or primed after it. Waits for no thread.
    void PrepareForExit();

    int GetFillBufferIndex() const;
    int GetPlayBufferIndex() const;
    MidiBuffer& GetFillBuffer();
    MidiBuffer& GetPlayBuffer();
    void IncrementFillBufferIndex();
    void IncrementPlayBufferIndex();

    /// For hosts that stand in for a part of the pipeline; std::bad_function_call
    /// where the callback is empty.
    void DoFillMidiBufferCallback(MidiBuffer& buffer, bool isFirst);
    void DoDownbeatCallback(std::uint32_t tickIndex);
    bool DoCheckCaesuraCallback(std::uint32_t tickIndex);
    void DoClockIsActiveCallback();
    void DoStoppedCallback();
    /// What the callback throws is logged.
    void DoTimeCodeCallback(double seconds, double nextSeconds, double clockTimeSeconds);

    /// On port 0, all channels: all notes off and reset all controllers.
    void AllNotesOff();
    /// On port 0, all channels: reset all controllers.
    void AllCCsOff();
    void SendAllNotesOff(std::uint16_t trackId);
    void SetTrackVolume(std::uint16_t trackId, std::uint8_t value);
    void SetTrackPan(std::uint16_t trackId, std::uint8_t value);
    void SetTrackBank(std::uint16_t trackId, std::uint8_t value);
    void SetTrackProgramId(std::uint16_t trackId, std::uint8_t program);
    /// All tracks in one buffer, so that they reach the stream together.
    void SetAllTracksVolume(const std::map<std::uint16_t, std::uint8_t>& values);
    void SetAllTracksPan(const std::map<std::uint16_t, std::uint8_t>& values);
    void SetAllTracksProgramId(const std::map<std::uint16_t, std::uint8_t>& programs);

    std::recursive_mutex& GetMutex() const { return mutex_; }
    /// The async-stopped thread's loop.
    void AsyncStoppedRunLoop();

protected:
    /// The concrete output's destructor calls it first: both threads end.
    void ExitThreads();
    void MidiRestart();
    void StartAsyncStoppedThread();
    /// One stopped callback for each call, until the thread is told to exit.
    void SignalAsyncStoppedCallback();
    /// Sends the buffer through the ports. An InvalidVoiceEvent is reported under
    /// the operation's name and goes no further.
    void SendAndReport(MidiBuffer& buffer, const char* operation);

    mutable std::recursive_mutex mutex_;
    const FillMidiBufferCallback fillMidiBufferCallback_;
    const DownbeatCallback downbeatCallback_;
    const StoppedCallback stoppedCallback_;
    const ClockIsActiveCallback clockIsActiveCallback_;
    const CheckCaesuraCallback checkCaesuraCallback_;
    MidiClock& clock_;
    std::recursive_mutex* const hostMutex_;

private:
    friend class MidiQueueThread;

    static constexpr int kRingSize = 4;
    // As many clocks as a bar of a slow meter: who asks, asks about what was just
    // played.
    static constexpr std::size_t kRememberedTempos = 96;

    std::shared_ptr<MidiBuffer> CreateRegisteredBuffer(std::uint8_t portCount, const std::string& name);
    MidiBuffer& RingBuffer(int index);
    void IncrementRingIndex(int& index);
    void RunAsyncStoppedThread();
    void SendSilencingBuffer(MidiBuffer& buffer, void (*fill)(MidiBuffer&), const char* operation);
    std::uint8_t PortOfTrack(std::uint16_t trackId) const;
    void InjectSingleEvent(std::uint8_t status, std::uint16_t trackId, std::uint8_t data1, std::uint8_t data2);
    void SetAllTracksCc(const std::map<std::uint16_t, std::uint8_t>& values, std::uint8_t controller);
    template <class MakeEvent>
    void SendToAllTracks(const std::map<std::uint16_t, std::uint8_t>& values, const char* operation,
                         MakeEvent makeEvent);

    // Set by Initialize(), constant afterwards.
    std::vector<std::shared_ptr<MidiBuffer>> buffers_;
    std::shared_ptr<MidiBuffer> allNotesOffBuffer_;
    std::shared_ptr<MidiBuffer> allCCsOffBuffer_;
    std::shared_ptr<MidiBuffer> oneShotBuffer_;
    std::thread asyncStoppedThread_;
    std::shared_ptr<MidiQueueThread> queueThread_;

    // Guarded by mutex_.
    std::shared_ptr<const TimeCodeCallback> timeCodeCallback_;
    int playBufferIndex_ = 0;
    int fillBufferIndex_ = 0;
    bool playback_ = false;
    // The latest entries only, in a ring: an entry per clock of a season would
    // never end.
    std::array<std::pair<std::uint32_t, double>, kRememberedTempos> bpmAtTickIndex_{};
    std::size_t bpmCount_ = 0;
    std::uint32_t tickIndex_ = 0;
    bool primeBuffersInProgress_ = false;
    bool buffersNeedPriming_ = true;

    std::mutex asyncStoppedMutex_;
    std::condition_variable asyncStoppedCondition_;
    bool exitAsyncStoppedThread_ = false;  // guarded by asyncStoppedMutex_
    int pendingStops_ = 0;                 // guarded by asyncStoppedMutex_

    MidiThreadManager threadManager_;
};
