#include "midi/midi_input_port.h"

MidiInputPort::MidiInputPort(std::uint8_t portIndex) : MidiPort(portIndex) {}
MidiInputPort::~MidiInputPort() = default;

void MidiInputPort::Start() {}
