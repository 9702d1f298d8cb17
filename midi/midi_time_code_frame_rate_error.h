#pragma once

#include <string>

#include "midi/midi_time_code_error.h"
#include "midi/vemo_midi_export.h"

/// A frame rate that MIDI Time Code does not have, or two that differ.
class VEMO_MIDI_EXPORT MidiTimeCodeFrameRateError : public MidiTimeCodeError {
public:
    explicit MidiTimeCodeFrameRateError(const std::string& message);
    MidiTimeCodeFrameRateError(const MidiTimeCodeFrameRateError&) = default;
    ~MidiTimeCodeFrameRateError() override;
};
