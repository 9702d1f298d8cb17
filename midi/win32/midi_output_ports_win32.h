#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "midi/midi_output_ports.h"
#include "midi/vemo_midi_export.h"
#include "midi/win32/midi_output_port_win32.h"
#include "midi/win32/win_synth.h"

/// The platform's output ports, which all write to one stream.
///
/// Owner, threads, lock: see MidiOutputPorts.
/// Errors:  MidiImplementationError of the stream passes on; disconnecting goes
///          through every buffer first and then passes on the first error.
class VEMO_MIDI_EXPORT MidiOutputPortsWin32 : public MidiOutputPorts {
public:
    explicit MidiOutputPortsWin32(std::uint8_t portCount);
    ~MidiOutputPortsWin32() override;

    void SendMidiBuffer(MidiBuffer& buffer) override;
    void RegisterMidiBuffer(std::shared_ptr<MidiBuffer> buffer) override;

    void ConnectSynth(WinSynth& synth);
    /// The ports keep their callbacks until the next ConnectSynth().
    void DisconnectSynth(WinSynth& synth);
    void CleanUpQuarantinedDataBuffers(HMIDIOUT handle);
    /// After the stream of this handle was closed.
    void DropQuarantinedDataBuffers(HMIDIOUT closedHandle);

private:
    std::vector<std::shared_ptr<MidiOutputPort>> outputPorts_;
    std::vector<std::shared_ptr<MidiBuffer>> registeredMidiBuffers_;
};
