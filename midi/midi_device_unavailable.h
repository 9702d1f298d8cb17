#pragma once

#include <string>

#include "midi/midi_implementation_error.h"
#include "midi/vemo_midi_export.h"

/// The MIDI output stream cannot be opened.
class VEMO_MIDI_EXPORT MidiDeviceUnavailable : public MidiImplementationError {
public:
    explicit MidiDeviceUnavailable(const std::string& message);
    MidiDeviceUnavailable(const MidiDeviceUnavailable&) = default;
    ~MidiDeviceUnavailable() override;
};
