#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "midi/vemo_midi_export.h"
#include "vemo_core/voice_event.h"

/// One port's share of a cycle in the layout of the platform's MIDI stream: short
/// events of 12 bytes, all with delta time 0, so that the stream plays them the
/// moment it gets them.
///
/// Owner:   a MidiBufferWin32; it outlives the platform's use of it. Once its
///          header is prepared it is never moved: the platform keeps its address.
/// Threads: the owner's under the cycle buffer's mutex; SignalMidiStreamOutDone()
///          on the platform's callback thread.
/// Lock:    the in-use lock, a leaf.
/// Units:   sizes in bytes, counts in events.
/// Errors:  MidiImplementationError from prepare, unprepare and a second SetInUse().
class VEMO_MIDI_EXPORT DataBuffer {
public:
    DataBuffer(std::uint16_t bufferSize, std::uint8_t portIndex, const std::string& name);
    DataBuffer(DataBuffer&& other) noexcept;
    DataBuffer& operator=(DataBuffer&& other) noexcept;
    DataBuffer(const DataBuffer&) = delete;
    DataBuffer& operator=(const DataBuffer&) = delete;
    ~DataBuffer();

    /// An event that is no channel message is reported and stored all the same.
    /// What finds no room is dropped: the caller asks GetBufferIsFull() first.
    void AddVoiceEvent(const vemo_midi::VoiceEvent& event);
    void AddCallbackEvent(std::uint32_t event);
    bool GetBufferIsFull() const { return eventCount_ >= maxEventCount_; }
    std::uint16_t GetEventCount() const { return eventCount_; }
    void ResetEventCount() { eventCount_ = 0; }
    /// From now on every message is written for channel 15.
    void SetUseChannel15() { useChannel15_ = true; }
    void* GetRawData() const { return rawData_.get(); }
    std::uint32_t GetTickIndex() const { return tickIndex_; }
    void SetTickIndex(std::uint32_t tickIndex) { tickIndex_ = tickIndex; }
    std::string GetBufferName() const;

    /// With both lengths set to what is written.
    MIDIHDR& GetMidiHeader();
    bool GetHeaderIsPrepared() const { return headerIsPrepared_; }
    /// Null while not prepared.
    HMIDIOUT GetPreparedOutputHandle() const { return preparedOutputHandle_; }
    void PrepareHeader(HMIDIOUT handle);
    void UnprepareHeader(HMIDIOUT handle);

    void SetInUse();
    bool GetInUse() const;
    void SignalMidiStreamOutDone();
    /// False when the stream still holds the buffer after so many seconds.
    bool WaitForMidiStreamOutDone(int seconds);

private:
    void AddRecord(std::uint32_t event);
    void SetHeaderLengths();

    std::uint16_t bufferSize_;
    std::uint16_t maxEventCount_;
    std::unique_ptr<std::uint8_t[]> rawData_;
    std::uint16_t eventCount_ = 0;
    bool useChannel15_ = false;
    MIDIHDR midiHeader_{};
    bool headerIsPrepared_ = false;
    HMIDIOUT preparedOutputHandle_ = nullptr;
    std::uint32_t tickIndex_ = 0;
    std::uint8_t portIndex_;
    std::string name_;
    bool inUse_ = false;  // guarded by *inUseMutex_
    // On the heap, so that a move leaves them in place.
    std::unique_ptr<std::mutex> inUseMutex_;
    std::unique_ptr<std::condition_variable> midiStreamOutDone_;
};
