#pragma once

#include <array>
#include <vector>

#include "midi/frame_rate.h"

inline constexpr std::array kRates{FrameRate::k24, FrameRate::k25, FrameRate::k2997Drop, FrameRate::k30};

using Label = std::array<int, 4>;

/// The labels from midnight on in order, by the rule that drops some: what the
/// code under test steps to is not asked.
inline std::vector<Label> CreateLabels(FrameRate rate, int hours) {
    std::vector<Label> labels;
    const int count = rate == FrameRate::k24 ? 24 : rate == FrameRate::k25 ? 25 : 30;
    for (int second = 0; second < hours * 3600; ++second)
        for (int frame = 0; frame < count; ++frame)
            if (rate != FrameRate::k2997Drop || frame > 1 || second % 60 != 0 || second % 600 == 0)
                labels.push_back({second / 3600, second / 60 % 60, second % 60, frame});
    return labels;
}
