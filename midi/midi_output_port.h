#pragma once

#include <cstdint>

#include "midi/midi_buffer.h"
#include "midi/midi_port.h"
#include "midi/vemo_midi_export.h"

/// One numbered MIDI output: sends its own index's share of a cycle buffer.
class VEMO_MIDI_EXPORT MidiOutputPort : public MidiPort {
public:
    explicit MidiOutputPort(std::uint8_t portIndex);
    MidiOutputPort(const MidiOutputPort&) = default;
    MidiOutputPort& operator=(const MidiOutputPort&) = default;
    ~MidiOutputPort() override;

    /// The caller holds the buffer's mutex.
    virtual void SendMidiBuffer(MidiBuffer& buffer) = 0;
    /// Always std::runtime_error: no output here changes a channel to drums.
    virtual void SetChannelDrumMode(std::uint8_t channel, bool on);
};
