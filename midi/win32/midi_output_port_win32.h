#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <cstdint>
#include <functional>
#include <string>

#include "midi/midi_output_port.h"
#include "midi/vemo_midi_export.h"
#include "midi/win32/midi_buffer_win32.h"

/// One output port; its display name is that of the platform's output device of
/// the same index. Until a stream is connected it sends nothing.
///
/// Owner, threads, lock: see MidiOutputPorts.
class VEMO_MIDI_EXPORT MidiOutputPortWin32 : public MidiOutputPort {
public:
    using OutputCallback = std::function<void(MidiBufferWin32*, std::uint8_t portIndex)>;

    explicit MidiOutputPortWin32(std::uint8_t portIndex);
    MidiOutputPortWin32(const MidiOutputPortWin32&) = default;
    MidiOutputPortWin32& operator=(const MidiOutputPortWin32&) = default;
    ~MidiOutputPortWin32() override;

    bool SetUniqueId(int id) override;
    /// "Not a valid output device." where the platform has no such device.
    std::string GetDisplayName() override;
    int GetUniqueId() override;
    /// An InvalidVoiceEvent from the callback is reported and passed on.
    void SendMidiBuffer(MidiBuffer& buffer) override;

    void SetMidiOutputCallback(OutputCallback callback);

private:
    bool capsAreValid_ = false;
    MIDIOUTCAPSW deviceCaps_{};
    bool hasOutputCallback_ = false;
    OutputCallback outputCallback_;
};
