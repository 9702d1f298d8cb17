#pragma once

#include <cstdint>

#include "vemo_core/vemo_core_export.h"

namespace TL {

/// The page of the score that is turned to at a tick.
class VEMO_CORE_EXPORT PageNum {
public:
    PageNum(std::uint32_t tickIndex, unsigned int number) : tickIndex_(tickIndex), number_(number) {}

    std::uint32_t abs_time() const { return tickIndex_; }
    unsigned int value() const { return number_; }

private:
    std::uint32_t tickIndex_;
    unsigned int number_;
};

}  // namespace TL
