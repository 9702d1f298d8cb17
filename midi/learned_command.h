#pragma once

#include <cstdint>

namespace midi_commands {

/// Which MIDI message fires which command.
struct LearnedCommand {
    std::uint8_t commandId = 0;
    std::uint8_t status = 0;   // without the channel
    std::uint8_t channel = 0;  // 0 to 15
    std::uint8_t data1 = 0;    // note, controller or program number
};

}  // namespace midi_commands
