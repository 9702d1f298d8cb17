#pragma once

#include <string>

#include "midi/midi_time_code_error.h"
#include "midi/vemo_midi_export.h"

/// A frame count outside its range.
class VEMO_MIDI_EXPORT InvalidFrameCount : public MidiTimeCodeError {
public:
    explicit InvalidFrameCount(const std::string& message);
    InvalidFrameCount(const InvalidFrameCount&) = default;
    ~InvalidFrameCount() override;
};
