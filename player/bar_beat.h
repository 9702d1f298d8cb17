#pragma once

#include <string_view>

namespace player {

/// A place as musicians name it: bar and beat, both from 1.
struct BarBeat {
    int bar = 1;
    int beat = 1;
    bool operator==(const BarBeat&) const = default;
};

/// "12" or "12:3". std::invalid_argument with one line that says what is wrong and
/// what is allowed.
BarBeat ParseBarBeat(std::string_view text);

}  // namespace player
