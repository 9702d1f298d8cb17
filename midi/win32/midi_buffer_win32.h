#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "midi/midi_buffer.h"
#include "midi/vemo_midi_export.h"
#include "midi/win32/data_buffer.h"

/// A cycle buffer whose events lie, port by port, in stream buffers of the
/// platform. A stream buffer that the platform never hands back is replaced and
/// kept aside until it does.
///
/// Owner, threads: see MidiBuffer.
/// Lock:    MidiBuffer's mutex, for the whole of every operation.
/// Errors:  std::out_of_range "invalid vector subscript" for a port that does not
///          exist, where MidiBuffer does not say otherwise.
class VEMO_MIDI_EXPORT MidiBufferWin32 : public MidiBuffer {
public:
    MidiBufferWin32(std::uint8_t portCount, std::uint16_t dataBufferSize, const std::string& name);
    ~MidiBufferWin32() override;

    bool AddEventToBuffer(std::uint8_t portIndex, const vemo_midi::VoiceEvent& event) override;
    void DoneAddingEventsToBuffer() override;
    bool GetBufferIsFull(std::uint8_t portIndex) override;
    void* GetPacketDataAtPortIndex(std::uint8_t portIndex) override;
    std::uint16_t GetPortEventCount(std::uint8_t portIndex) override;
    void ResetPortEventCounts() override;
    void SetTickIndex(std::uint32_t tickIndex) override;

    /// A marker at which the platform calls back; nothing where port 0 is full.
    void AddPositionCallback();
    DataBuffer& GetDataBuffer(std::uint8_t portIndex);
    void PrepareHeaders(HMIDIOUT handle);
    void UnprepareHeaders(HMIDIOUT handle);

    /// Sets the port's stream buffer aside, since the stream still holds it, and
    /// gives the port a new, empty one.
    void QuarantineDataBuffer(std::uint8_t portIndex, HMIDIOUT handle);
    /// Prepares the replacement of a quarantined buffer where that failed before.
    void PrepareReplacement(std::uint8_t portIndex, HMIDIOUT handle);
    /// Drops the buffers that the stream of this handle has returned, and those of
    /// any other stream, which is closed.
    void CleanUpQuarantinedDataBuffers(HMIDIOUT handle);
    /// After the stream of this handle was closed.
    void DropQuarantinedDataBuffers(HMIDIOUT closedHandle);
    bool GetHasQuarantinedDataBuffers() const;
    std::uint32_t GetQuarantinedDataBufferCount() const;
    void RetainDataBufferLock(std::uint8_t portIndex);

private:
    std::shared_ptr<DataBuffer> CreateDataBuffer(std::uint8_t portIndex) const;

    const std::uint16_t dataBufferSize_;
    std::vector<std::shared_ptr<DataBuffer>> dataBuffers_;
    std::vector<std::shared_ptr<DataBuffer>> quarantinedDataBuffers_;
    std::set<std::uint8_t> retainedPorts_;
    std::set<std::uint8_t> replacementsToPrepare_;
};
