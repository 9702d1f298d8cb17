#pragma once

#include <string>

#include "midi/vemo_midi_error.h"
#include "midi/vemo_midi_export.h"

/// An event that is no channel message. Sends report it and go on.
class VEMO_MIDI_EXPORT InvalidVoiceEvent : public VemoMidiError {
public:
    explicit InvalidVoiceEvent(const std::string& message);
    InvalidVoiceEvent(const InvalidVoiceEvent&) = default;
    ~InvalidVoiceEvent() override;
};
