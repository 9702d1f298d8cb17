#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "player/transport_command.h"

namespace player {

/// Timed commands, one a line: "at 12:1 transpose 2". Each is carried out once, in
/// the order of the lines, as soon as the music stands at its bar and beat or
/// behind it. Empty lines and lines that start with # are left out.
///
/// Owner: whoever runs it; a value.
struct Script {
    struct Line {
        BarBeat at;
        TransportCommand command;
        std::string text;
    };
    std::vector<Line> lines;

    /// std::invalid_argument "NAME: line N: reason" for the first line that is none.
    static Script Parse(const std::string& text, const std::string& name);
};

}  // namespace player
