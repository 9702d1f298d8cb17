#pragma once

#include <cstdint>

#include "vemo_core/vemo_core_export.h"

namespace TL {

/// A key signature from its tick on: sharps (negative = flats, -7..7) and mode.
class VEMO_CORE_EXPORT Key {
public:
    Key(std::uint32_t tickIndex, int sharps, bool minor) : tickIndex_(tickIndex), sharps_(sharps), minor_(minor) {}

    std::uint32_t abs_time() const { return tickIndex_; }
    int sharps() const { return sharps_; }
    bool minor() const { return minor_; }

private:
    std::uint32_t tickIndex_;
    int sharps_;
    bool minor_;
};

}  // namespace TL
