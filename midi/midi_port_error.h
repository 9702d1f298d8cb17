#pragma once

#include <string>

#include "midi/vemo_midi_error.h"
#include "midi/vemo_midi_export.h"

/// A MIDI input port cannot be opened, connected or started.
class VEMO_MIDI_EXPORT MidiPortError : public VemoMidiError {
public:
    explicit MidiPortError(const std::string& message);
    MidiPortError(const MidiPortError&) = default;
    ~MidiPortError() override;
};
