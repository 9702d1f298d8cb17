#pragma once

#include <string>

#include "midi/midi_implementation_error.h"
#include "zell/format.h"

/// The failure of a platform MIDI call as our exception: where it was made, which
/// call it was, the code and its text.
[[noreturn]] inline void ThrowMidiCallFailed(const char* sourceFile, int line, const char* description,
                                             unsigned int result, const std::string& text) {
    throw MidiImplementationError(
        zell::format("%s line %d: %s caused error %d, %s.", sourceFile, line, description, result, text));
}
