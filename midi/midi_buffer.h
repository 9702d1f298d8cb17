#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "midi/vemo_midi_export.h"
#include "vemo_core/voice_event.h"

/// One output cycle: the events that sound at one MIDI clock, by output port,
/// with the place in the song that the cycle belongs to and the hand-over between
/// the thread that fills it and the thread that plays it.
///
/// Owner:   MidiOutput keeps a ring of four and three special ones; a host may
///          register one of its own with the ports.
/// Threads: the queue thread fills it (inside the host's fill callback, which
///          holds GetMutex() while it adds), the clock thread plays it. What takes
///          no lock is written before SetHasData(true) and read after it.
/// Lock:    GetMutex() (recursive) for everything but the has-data flag, then
///          the flag's own, a leaf.
/// Units:   ticks; clock numbers from 0 within a click; time code in seconds.
/// Errors:  a full or missing port refuses an event (false).
class VEMO_MIDI_EXPORT MidiBuffer {
public:
    using PluginIds = std::pair<std::uint32_t, std::vector<std::uint32_t>>;

    MidiBuffer(std::uint8_t portCount, const std::string& name);
    virtual ~MidiBuffer();
    MidiBuffer(const MidiBuffer&) = delete;
    MidiBuffer& operator=(const MidiBuffer&) = delete;

    /// Stores the event for the port; false when the port is full (or does not
    /// exist) and the event was not taken.
    virtual bool AddEventToBuffer(std::uint8_t portIndex, const vemo_midi::VoiceEvent& event) = 0;
    virtual void DoneAddingEventsToBuffer() = 0;
    virtual bool GetBufferIsFull(std::uint8_t portIndex) = 0;
    virtual void* GetPacketDataAtPortIndex(std::uint8_t portIndex) = 0;
    virtual std::uint16_t GetPortEventCount(std::uint8_t portIndex);
    /// Empties the buffer for the next fill. Keeps the all-controllers-off flag,
    /// clocks per click, time code, plug-in ids, name and port count.
    virtual void Reset();
    virtual void ResetPortEventCounts();
    virtual void SetTickIndex(std::uint32_t tickIndex);

    std::recursive_mutex& GetMutex() const { return mutex_; }
    std::uint32_t GetTickIndex() const;
    int GetClockNumber() const;
    void SetClockNumber(int clockNumber);
    void SetClocksPerClick(int clocksPerClick) { clocksPerClick_ = clocksPerClick; }
    /// Seconds per MIDI clock at so many clicks per minute.
    double GetClockTimeSeconds(double beatsPerMinute) const;
    std::uint8_t GetPortCount() const;
    std::string GetName() const { return name_; }

    bool GetIsFirstBuffer() const;
    void SetIsFirstBuffer();
    bool GetIsLastBuffer() const;
    /// true also hands the buffer over: SetHasData(true).
    void SetIsLastBuffer(bool isLast);

    /// Reads and clears. Setting has no effect on a first buffer.
    bool GetShouldSendAllNotesOff();
    void SetShouldSendAllNotesOff();
    bool GetShouldSendAllCCsOff();
    void SetShouldSendAllCCsOff();

    double GetTimeCodeSeconds() const { return timeCodeSeconds_; }
    void SetTimeCodeSeconds(double seconds) { timeCodeSeconds_ = seconds; }
    double GetNextTimeCodeSeconds() const { return nextTimeCodeSeconds_; }
    void SetNextTimeCodeSeconds(double seconds) { nextTimeCodeSeconds_ = seconds; }

    /// Identifiers of the host's own, carried and not interpreted.
    bool GetHasPluginIds() const { return hasPluginIds_; }
    const PluginIds& GetOnDeckPluginIds() const { return onDeckPluginIds_; }
    void SetPluginIds(PluginIds&& ids);

    void SetHasData(bool hasData);
    /// Blocks while the buffer waits to be played; then true.
    bool WaitUntilNeedsData();
    /// Waits up to one second for the fill; false when the second ran out.
    bool WaitUntilReadyForOutput();
    /// Playback has ended: whoever waits for output, or is about to, waits no longer.
    /// Until the next Reset().
    void AbandonOutput();

    /// Notifies notify::names::currentProgramIds of the program changes of this
    /// cycle, under GetMutex(); nothing where there are none.
    void SendProgramChanges();

protected:
    /// The caller holds GetMutex().
    void FilterProgramChange(std::uint8_t portIndex, const vemo_midi::VoiceEvent& event);

    mutable std::recursive_mutex mutex_;

private:
    std::mutex hasDataMutex_;
    std::condition_variable hasDataCondition_;
    bool hasData_ = false;            // guarded by hasDataMutex_
    bool outputIsAbandoned_ = false;  // guarded by hasDataMutex_

    // Guarded by mutex_.
    const std::uint8_t portCount_;
    std::uint32_t tickIndex_ = 0;
    bool isLastBuffer_ = false;
    bool isFirstBuffer_ = false;
    int clockNumber_ = 0;
    std::map<std::uint8_t, std::uint16_t> portEventCounts_;
    const std::string name_;
    std::map<std::uint16_t, std::uint8_t> currentProgramIds_;
    bool shouldSendAllNotesOff_ = false;
    bool shouldSendAllCCsOff_ = false;

    // Handed over by hasDataMutex_.
    bool hasPluginIds_ = false;
    PluginIds onDeckPluginIds_;
    double timeCodeSeconds_ = 0;
    double nextTimeCodeSeconds_ = 0;
    int clocksPerClick_ = 0;
};

/// A buffer of the platform's form with dataBufferSize bytes of stream storage
/// per port. The caller owns it.
VEMO_MIDI_EXPORT MidiBuffer* CreateMidiBuffer(std::uint8_t portCount, std::uint16_t dataBufferSize,
                                              const std::string& name);

/// Fill a buffer with the messages that silence port 0: on each channel all
/// notes off and reset all controllers, or the latter alone.
VEMO_MIDI_EXPORT void AddAllNotesOff(MidiBuffer& buffer);
VEMO_MIDI_EXPORT void AddAllCCsOff(MidiBuffer& buffer);
