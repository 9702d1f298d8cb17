#pragma once

#include <string>

#include "midi/midi_time_code_error.h"
#include "midi/vemo_midi_export.h"

/// A hour count outside its range.
class VEMO_MIDI_EXPORT InvalidHourCount : public MidiTimeCodeError {
public:
    explicit InvalidHourCount(const std::string& message);
    InvalidHourCount(const InvalidHourCount&) = default;
    ~InvalidHourCount() override;
};
