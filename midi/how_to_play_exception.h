#pragma once

#include <stdexcept>
#include <string>

#include "midi/vemo_midi_export.h"

/// For callers of the position tracker, which itself throws none.
class VEMO_MIDI_EXPORT HowToPlayException : public std::runtime_error {
public:
    explicit HowToPlayException(const std::string& message);
    HowToPlayException(const HowToPlayException&) = default;
    ~HowToPlayException() override;
};
