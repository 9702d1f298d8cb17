#include "midi/midi_output_port.h"

#include <stdexcept>

MidiOutputPort::MidiOutputPort(std::uint8_t portIndex) : MidiPort(portIndex) {}
MidiOutputPort::~MidiOutputPort() = default;

void MidiOutputPort::SetChannelDrumMode(std::uint8_t, bool) {
    throw std::runtime_error("MIDI Output Port not implement changing channel to drums.");
}
