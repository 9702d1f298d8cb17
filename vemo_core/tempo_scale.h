#pragma once

#include "vemo_core/codes.h"
#include "vemo_core/paired_event.h"

namespace CL {

/// A factor on the written tempo between two ticks (1.0 = as written).
class VEMO_CORE_EXPORT TempoScale : public PairedEvent {
public:
    static constexpr std::uint16_t kCode = codes::kTempoScale;
    TempoScale(std::uint32_t startTick, std::uint32_t endTick, double factor)
        : PairedEvent(startTick, endTick, static_cast<int>(factor), factor) {}
};

}  // namespace CL
