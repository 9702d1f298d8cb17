#pragma once

#include <cstdint>
#include <ostream>

#include "vemo_core/vemo_core_export.h"

namespace CL {

/// A change of the song log that holds from its start tick up to its end tick.
class VEMO_CORE_EXPORT PairedEvent {
public:
    PairedEvent(std::uint32_t startTick, std::uint32_t endTick, int intValue, double floatValue)
        : start_(startTick), end_(endTick), intValue_(intValue), floatValue_(floatValue) {}

    std::uint32_t abs_time() const { return start_; }
    std::uint32_t start() const { return start_; }
    std::uint32_t end() const { return end_; }
    int int_value() const { return intValue_; }
    double float_value() const { return floatValue_; }
    double value() const { return floatValue_; }
    /// "start=960 end=1920 value=2"; the value as a whole number or a factor.
    void WriteString(std::ostream& out) const;

private:
    std::uint32_t start_;
    std::uint32_t end_;
    int intValue_;
    double floatValue_;
};

}  // namespace CL
