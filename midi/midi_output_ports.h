#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "midi/midi_buffer.h"
#include "midi/midi_port.h"
#include "midi/vemo_midi_export.h"

/// All output ports of an output pipeline: where cycle buffers are registered,
/// and from where a buffer goes out port by port.
///
/// Owner:   the output.
/// Threads: registering and connecting on the host thread while playback is
///          stopped; sending on the clock thread or a host thread.
/// Lock:    none of its own: the sender holds the buffer's mutex.
class VEMO_MIDI_EXPORT MidiOutputPorts {
public:
    MidiOutputPorts();
    MidiOutputPorts(const MidiOutputPorts&) = delete;
    MidiOutputPorts& operator=(const MidiOutputPorts&) = delete;

    /// Always std::runtime_error: no output here changes a channel to drums.
    virtual void SetChannelDrumMode(std::uint8_t channel, bool on);
    virtual ~MidiOutputPorts();
    virtual void SendMidiBuffer(MidiBuffer& buffer) = 0;
    /// Before a stream is connected: only then does the buffer get its headers.
    virtual void RegisterMidiBuffer(std::shared_ptr<MidiBuffer> buffer) = 0;
};

/// The platform's ports 0 to portCount - 1. The caller owns them.
VEMO_MIDI_EXPORT MidiOutputPorts* CreateMidiPorts(std::uint8_t portCount);

/// Empty on this platform: the list of destinations is made elsewhere.
VEMO_MIDI_EXPORT std::vector<std::shared_ptr<MidiPort>> GetMidiOutputPorts();
