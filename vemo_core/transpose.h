#pragma once

#include "vemo_core/codes.h"
#include "vemo_core/paired_event.h"

namespace CL {

/// A transposition between two ticks, in semitones.
class VEMO_CORE_EXPORT Transpose : public PairedEvent {
public:
    static constexpr std::uint16_t kCode = codes::kTranspose;
    Transpose(std::uint32_t startTick, std::uint32_t endTick, int semitones)
        : PairedEvent(startTick, endTick, semitones, semitones) {}
};

}  // namespace CL
