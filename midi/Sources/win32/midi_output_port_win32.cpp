#include "midi/win32/midi_output_port_win32.h"

#include <utility>

#include "midi/invalid_voice_event.h"
#include "midi/win32/device_diagnostics.h"
#include "zell/cout_buffer.h"

MidiOutputPortWin32::MidiOutputPortWin32(std::uint8_t portIndex) : MidiOutputPort(portIndex) {
    // Not in the list of initialisers: the flag comes before the record, whose own
    // initialisation would then wipe what the platform wrote.
    capsAreValid_ = midiOutGetDevCapsW(portIndex, &deviceCaps_, sizeof(deviceCaps_)) == MMSYSERR_NOERROR;
}

MidiOutputPortWin32::~MidiOutputPortWin32() = default;

bool MidiOutputPortWin32::SetUniqueId(int) {
    return true;
}

std::string MidiOutputPortWin32::GetDisplayName() {
    return capsAreValid_ ? GetProductName(deviceCaps_) : "Not a valid output device.";
}

int MidiOutputPortWin32::GetUniqueId() {
    return 0;
}

void MidiOutputPortWin32::SendMidiBuffer(MidiBuffer& buffer) {
    if (!hasOutputCallback_)
        return;
    try {
        outputCallback_(static_cast<MidiBufferWin32*>(&buffer), GetPortIndex());
    } catch (const InvalidVoiceEvent&) {
        zell::CoutBuffer() << "InvalidVoiceEvent for port " << static_cast<int>(GetPortIndex()) << zell::endl;
        throw;
    }
}

void MidiOutputPortWin32::SetMidiOutputCallback(OutputCallback callback) {
    outputCallback_ = std::move(callback);
    hasOutputCallback_ = true;
}
