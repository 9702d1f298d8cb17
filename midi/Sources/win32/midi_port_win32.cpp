#include "midi/win32/midi_port_win32.h"

MidiPortWin32::MidiPortWin32(std::uint8_t portIndex, bool) : MidiPort(portIndex) {}
MidiPortWin32::~MidiPortWin32() = default;

bool MidiPortWin32::SetUniqueId(int) {
    return true;
}
std::string MidiPortWin32::GetDisplayName() {
    return {};
}
int MidiPortWin32::GetUniqueId() {
    return 0;
}
