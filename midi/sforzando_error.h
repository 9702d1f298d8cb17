#pragma once

#include <string>

#include "midi/midi_implementation_error.h"
#include "midi/vemo_midi_export.h"

/// For hosts that drive a sampler of their own; the engine throws none.
class VEMO_MIDI_EXPORT SforzandoError : public MidiImplementationError {
public:
    explicit SforzandoError(const std::string& message);
    SforzandoError(const SforzandoError&) = default;
    ~SforzandoError() override;
};
