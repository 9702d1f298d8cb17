#include "midi/midi_port.h"

MidiPort::MidiPort(std::uint8_t portIndex) : portIndex_(portIndex) {}
MidiPort::~MidiPort() = default;
