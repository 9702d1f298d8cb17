#pragma once

#include <string>

#include "midi/midi_time_code_error.h"
#include "midi/vemo_midi_export.h"

/// A quarter-frame index outside 0..7.
class VEMO_MIDI_EXPORT QuarterFrameIndexError : public MidiTimeCodeError {
public:
    explicit QuarterFrameIndexError(const std::string& message);
    QuarterFrameIndexError(const QuarterFrameIndexError&) = default;
    ~QuarterFrameIndexError() override;
};
