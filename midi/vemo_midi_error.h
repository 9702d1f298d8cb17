#pragma once

#include <stdexcept>
#include <string>

#include "midi/vemo_midi_export.h"

/// The root of the engine's failures.
class VEMO_MIDI_EXPORT VemoMidiError : public std::runtime_error {
public:
    explicit VemoMidiError(const std::string& message);
    VemoMidiError(const VemoMidiError&) = default;
    ~VemoMidiError() override;
};
