#pragma once

#include <string>

#include "midi/midi_time_code_error.h"
#include "midi/vemo_midi_export.h"

/// A second count outside its range.
class VEMO_MIDI_EXPORT InvalidSecondCount : public MidiTimeCodeError {
public:
    explicit InvalidSecondCount(const std::string& message);
    InvalidSecondCount(const InvalidSecondCount&) = default;
    ~InvalidSecondCount() override;
};
