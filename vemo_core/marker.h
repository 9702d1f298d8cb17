#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "vemo_core/vemo_core_export.h"

namespace CL {

/// A named place of the song.
class VEMO_CORE_EXPORT Marker {
public:
    Marker(std::uint32_t tickIndex, std::string text) : tickIndex_(tickIndex), text_(std::move(text)) {}

    std::uint32_t abs_time() const { return tickIndex_; }
    const std::string& value() const { return text_; }

private:
    std::uint32_t tickIndex_;
    std::string text_;
};

}  // namespace CL
