#pragma once

#include "midi/vemo_midi_export.h"

/// Something that plays cycle buffers.
class VEMO_MIDI_EXPORT Synth {
public:
    Synth();
    Synth(const Synth&) = delete;
    Synth& operator=(const Synth&) = delete;
    virtual ~Synth();
};
