#pragma once

#include <string>

#include "midi/midi_time_code_error.h"
#include "midi/vemo_midi_export.h"

/// A minute count outside its range.
class VEMO_MIDI_EXPORT InvalidMinuteCount : public MidiTimeCodeError {
public:
    explicit InvalidMinuteCount(const std::string& message);
    InvalidMinuteCount(const InvalidMinuteCount&) = default;
    ~InvalidMinuteCount() override;
};
