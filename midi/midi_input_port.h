#pragma once

#include <cstdint>

#include "midi/midi_port.h"
#include "midi/vemo_midi_export.h"

/// One numbered MIDI input.
///
/// Owner, threads: see MidiPort.
class VEMO_MIDI_EXPORT MidiInputPort : public MidiPort {
public:
    explicit MidiInputPort(std::uint8_t portIndex);
    MidiInputPort(const MidiInputPort&) = default;
    MidiInputPort& operator=(const MidiInputPort&) = default;
    ~MidiInputPort() override;

    /// Nothing here: a port that delivers says what it starts.
    virtual void Start();
};
