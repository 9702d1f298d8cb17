#include "input_devices.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "faults.h"
#include "midi_inputs.h"

namespace win32_layer {

InputDevices& InputDevices::Instance() {
    static InputDevices* const instance = new InputDevices;
    return *instance;
}

bool InputDevices::Add(std::shared_ptr<MidiInputDevice> device) {
    const std::lock_guard plug(plugMutex_);
    const auto place = places_.FindLeftBy(*device);
    if (!place) {
        places_.Append(std::move(device));
        return true;
    }
    if (place->plugIn) {
        if (!device->Open(place->plugIn()))
            return false;
        place->opened = device;
    }
    places_.Exchange(*place, std::move(device));
    return true;
}

void InputDevices::Remove(const std::shared_ptr<MidiInputDevice>& device) {
    const std::lock_guard plug(plugMutex_);
    const auto place = places_.FindOf(device);
    if (!place)
        return;
    places_.Exchange(*place, nullptr);
    Unplug(*place);
}

void InputDevices::RemoveAll() {
    const std::lock_guard plug(plugMutex_);
    for (const auto& place : places_.TakeAll()) {
        places_.Exchange(*place, nullptr);
        Unplug(*place);
    }
}

void InputDevices::Unplug(Place& place) {
    if (const auto opened = std::exchange(place.opened, nullptr))
        opened->Close();
}

MMRESULT InputDevices::Open(Place& place, PlugIn plugIn) {
    const std::lock_guard plug(plugMutex_);
    auto device = places_.GetDevice(place);
    if (!device)
        return MMSYSERR_NODRIVER;
    if (place.plugIn || !device->Open(plugIn()))
        return MMSYSERR_ALLOCATED;
    place.opened = std::move(device);
    place.plugIn = std::move(plugIn);
    return MMSYSERR_NOERROR;
}

void InputDevices::Close(Place& place) {
    const std::lock_guard plug(plugMutex_);
    Unplug(place);
    place.plugIn = {};
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::InputDevices;
using win32_layer::MidiInputs;

UINT midiInGetNumDevs() {
    return static_cast<UINT>(InputDevices::Instance().GetPlaces().GetCount());
}

MMRESULT midiInGetDevCapsW(UINT_PTR device, LPMIDIINCAPSW caps, UINT capsBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kInputCaps))
        return *code;
    if (!caps)
        return MMSYSERR_INVALPARAM;
    auto place = InputDevices::Instance().GetPlaces().At(device);
    if (!place)  // the platform takes an open handle as well as an index
        place = MidiInputs::Instance().GetPlace(reinterpret_cast<HMIDIIN>(device));
    if (!place)
        return MMSYSERR_BADDEVICEID;
    MIDIINCAPSW found{};
    found.vDriverVersion = 0x0100;
    // No zero after 32 characters: readers must not count on one.
    place->name.copy(found.szPname, MAXPNAMELEN);
    std::memcpy(caps, &found, std::min<std::size_t>(capsBytes, sizeof(found)));
    return MMSYSERR_NOERROR;
}
