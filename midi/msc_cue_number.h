#pragma once

#include <string>

/// Which cue a MIDI Show Control message is about: the bytes of its fields as they
/// came, digits and decimal points where the sender is well behaved. A field that
/// the message does not have is empty.
struct MscCueNumber {
    std::string number;
    std::string list;
    std::string path;
};
