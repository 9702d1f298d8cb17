#include "win32_layer/virtual_midi_input.h"

#include <utility>

namespace win32_layer {

MidiInputDevice::~MidiInputDevice() = default;

VirtualMidiInput::VirtualMidiInput(std::wstring name) : name_(std::move(name)) {}

VirtualMidiInput::~VirtualMidiInput() = default;

std::wstring VirtualMidiInput::GetName() const {
    return name_;
}

std::string VirtualMidiInput::GetIdentity() const {
    std::string identity = "virtual:";
    for (const wchar_t character : name_)
        identity += static_cast<char>(character);
    return identity;
}

bool VirtualMidiInput::Open(Sink sink) {
    const std::lock_guard lock(mutex_);
    if (refusesOpen_)
        return false;
    sink_ = std::move(sink);
    return true;
}

void VirtualMidiInput::Close() {
    const std::lock_guard lock(mutex_);
    sink_ = {};
}

void VirtualMidiInput::Send(const std::vector<std::uint8_t>& bytes) {
    const std::lock_guard lock(mutex_);
    if (sink_)
        sink_(bytes.data(), bytes.size());
}

void VirtualMidiInput::SetRefusesOpen(bool refuses) {
    const std::lock_guard lock(mutex_);
    refusesOpen_ = refuses;
}

bool VirtualMidiInput::IsOpen() const {
    const std::lock_guard lock(mutex_);
    return sink_ != nullptr;
}

}  // namespace win32_layer
