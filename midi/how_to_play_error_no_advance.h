#pragma once

#include <string>

#include "midi/how_to_play_exception.h"
#include "midi/vemo_midi_export.h"

/// The position cannot advance. For callers of the tracker.
class VEMO_MIDI_EXPORT HowToPlayErrorNoAdvance : public HowToPlayException {
public:
    explicit HowToPlayErrorNoAdvance(const std::string& message);
    HowToPlayErrorNoAdvance(const HowToPlayErrorNoAdvance&) = default;
    ~HowToPlayErrorNoAdvance() override;
};
