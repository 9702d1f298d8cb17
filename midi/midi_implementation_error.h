#pragma once

#include <string>

#include "midi/vemo_midi_error.h"
#include "midi/vemo_midi_export.h"

/// A call of the platform's MIDI service failed.
class VEMO_MIDI_EXPORT MidiImplementationError : public VemoMidiError {
public:
    explicit MidiImplementationError(const std::string& message);
    MidiImplementationError(const MidiImplementationError&) = default;
    ~MidiImplementationError() override;
};
