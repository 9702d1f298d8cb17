#pragma once

#include <cstdint>
#include <string>

#include "midi/vemo_midi_export.h"

/// One numbered MIDI connection of the engine, output or input.
///
/// Owner:   the set of ports that created it.
/// Threads: see the concrete ports.
class VEMO_MIDI_EXPORT MidiPort {
public:
    explicit MidiPort(std::uint8_t portIndex);
    MidiPort(const MidiPort&) = default;
    MidiPort& operator=(const MidiPort&) = default;
    virtual ~MidiPort();

    virtual bool SetUniqueId(int id) = 0;
    virtual std::string GetDisplayName() = 0;
    virtual int GetUniqueId() = 0;

    std::uint8_t GetPortIndex() const { return portIndex_; }

private:
    std::uint8_t portIndex_;
};
