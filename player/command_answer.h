#pragma once

#include <cstdint>
#include <string>

namespace player {

/// How a command went.
struct CommandAnswer {
    bool done = false;
    std::string message;       // why not, or what there is to say
    std::uint64_t number = 0;  // in the order of carrying out; 0: not queued
};

}  // namespace player
