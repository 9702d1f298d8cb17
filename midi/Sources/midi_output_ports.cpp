#include "midi/midi_output_ports.h"

#include <stdexcept>

MidiOutputPorts::MidiOutputPorts() = default;
MidiOutputPorts::~MidiOutputPorts() = default;

void MidiOutputPorts::SetChannelDrumMode(std::uint8_t, bool) {
    throw std::runtime_error("MIDI Output Ports does not implement changing channel to drums.");
}
