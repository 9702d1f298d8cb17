#pragma once

#include <cstdint>
#include <string>

#include "vemo_core/vemo_core_export.h"

namespace TL {

/// One beat of the song. Bars and beats count from 1; beat 1 starts a bar.
class VEMO_CORE_EXPORT BarsBeats {
public:
    BarsBeats(std::uint32_t tickIndex, std::uint32_t bar, std::uint32_t beat)
        : tickIndex_(tickIndex), bar_(bar), beat_(beat) {}

    std::uint32_t abs_time() const { return tickIndex_; }
    std::uint32_t bar() const { return bar_; }
    std::uint32_t beat() const { return beat_; }
    /// "12:1", bar and beat.
    std::string as_string() const;

private:
    std::uint32_t tickIndex_;
    std::uint32_t bar_;
    std::uint32_t beat_;
};

}  // namespace TL
