#include "midi/frame_rate.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <stdexcept>

namespace {

// Known before any object is built at load time, frameRateStrings included.
constexpr std::array<const char*, 4> kNames{"24 fps", "25 fps", "29.97 fps drop", "30 fps"};

}  // namespace

const std::vector<std::string> frameRateStrings(kNames.begin(), kNames.end());

std::string ConvertFrameRateToString(FrameRate frameRate) {
    const auto index = static_cast<std::size_t>(frameRate);
    if (index >= kNames.size())
        throw std::logic_error("Unsupported frame rate");
    return kNames[index];
}

FrameRate ConvertStringToFrameRate(const std::string& name) {
    const auto* const found = std::find(kNames.begin(), kNames.end(), name);
    if (found == kNames.end())
        throw std::logic_error("Unsupported frame rate.");
    return static_cast<FrameRate>(std::distance(kNames.begin(), found));
}
