#include "midi/midi_input_interface.h"

MidiInputInterface::MidiInputInterface() = default;
MidiInputInterface::~MidiInputInterface() = default;
