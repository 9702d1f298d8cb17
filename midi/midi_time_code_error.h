#pragma once

#include <string>

#include "midi/vemo_midi_error.h"
#include "midi/vemo_midi_export.h"

/// The root of the time-code failures.
class VEMO_MIDI_EXPORT MidiTimeCodeError : public VemoMidiError {
public:
    explicit MidiTimeCodeError(const std::string& message);
    MidiTimeCodeError(const MidiTimeCodeError&) = default;
    ~MidiTimeCodeError() override;
};
