#include "midi/win32/midi_input_port_win32.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <system_error>

#include "midi/Sources/win32/narrow_text.h"
#include "midi/midi_port_error.h"
#include "midi/midi_ports.h"
#include "zell/format.h"

namespace {

constexpr UINT kPortCount = 256;  // what a port index can tell apart

void RequireSuccess(const char* call, MMRESULT result) {
    if (result == MMSYSERR_NOERROR)
        return;
    throw MidiPortError(
        zell::format("%s: %d %s", call, result, std::generic_category().message(static_cast<int>(result))));
}

}  // namespace

std::vector<std::shared_ptr<MidiPort>> GetMidiInputPorts() {
    std::vector<std::shared_ptr<MidiPort>> ports;
    const UINT count = std::min(midiInGetNumDevs(), kPortCount);
    for (UINT index = 0; index < count; ++index)
        ports.push_back(std::make_shared<MidiInputPortWin32>(static_cast<std::uint8_t>(index)));
    return ports;
}

MidiInputPortWin32::MidiInputPortWin32(std::uint8_t portIndex) : MidiInputPortWin32(portIndex, nullptr, nullptr) {}

MidiInputPortWin32::MidiInputPortWin32(std::uint8_t portIndex, InputCallback callback, void* callbackTarget)
    : MidiInputPort(portIndex), callbackTarget_(callbackTarget) {
    // Not in the list of initialisers: the flag comes before the record, whose own
    // initialisation would then wipe what the platform wrote.
    capsAreValid_ = midiInGetDevCapsW(portIndex, &caps_, sizeof(caps_)) == MMSYSERR_NOERROR;
    if (callback == nullptr)
        return;
    HMIDIIN handle = nullptr;
    RequireSuccess("midiInOpen", midiInOpen(&handle, portIndex, reinterpret_cast<DWORD_PTR>(callback),
                                            reinterpret_cast<DWORD_PTR>(this), CALLBACK_FUNCTION));
    handle_ = handle;
    isOpen_ = true;
}

MidiInputPortWin32::~MidiInputPortWin32() {
    KillIt();
}

bool MidiInputPortWin32::SetUniqueId(int) {
    return true;
}

std::string MidiInputPortWin32::GetDisplayName() {
    return capsAreValid_ ? NarrowText(caps_.szPname, std::size(caps_.szPname)) : "Not a valid input device.";
}

int MidiInputPortWin32::GetUniqueId() {
    return 0;
}

void MidiInputPortWin32::Start() {
    RequireSuccess("midiInStart", midiInStart(handle_));
    const std::lock_guard lock(mutex_);
    isRunning_ = true;
}

void MidiInputPortWin32::KillIt() {
    {
        const std::lock_guard lock(mutex_);
        isRunning_ = false;
    }
    if (!isOpen_)
        return;
    midiInReset(handle_);
    midiInClose(handle_);
    isOpen_ = false;
    handle_ = nullptr;
}

bool MidiInputPortWin32::GetIsRunning() {
    const std::lock_guard lock(mutex_);
    return isRunning_;
}
