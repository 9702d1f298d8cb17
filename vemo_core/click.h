#pragma once

#include "vemo_core/codes.h"
#include "vemo_core/paired_event.h"

namespace CL {

/// A click of its own between two ticks: notated thirty-seconds per click.
class VEMO_CORE_EXPORT Click : public PairedEvent {
public:
    static constexpr std::uint16_t kCode = codes::kClick;
    Click(std::uint32_t startTick, std::uint32_t endTick, int notated32)
        : PairedEvent(startTick, endTick, notated32, notated32) {}

    /// MIDI clocks per click where 24 clocks are notated as so many
    /// thirty-seconds: value * 24 / notated32Per24Clocks, in integers. At least
    /// 1, because everyone counts clocks modulo this.
    int ClocksPerClick(int notated32Per24Clocks) const;
};

}  // namespace CL
