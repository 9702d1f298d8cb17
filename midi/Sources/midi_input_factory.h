#pragma once

#include <memory>

#include "midi/midi_input_interface.h"

class MidiMessageDispatcher;

/// The platform's input device of that index, opened and not started; it delivers
/// to the dispatcher, which outlives it. MidiPortError where it cannot be opened.
std::unique_ptr<MidiInputInterface> CreateMidiInput(unsigned char portIndex, MidiMessageDispatcher* dispatcher);
