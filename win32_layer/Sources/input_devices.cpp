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

void InputDevices::Add(std::shared_ptr<MidiInputDevice> device) {
    const std::lock_guard plug(plugMutex_);
    std::shared_ptr<Place> place;
    {
        const std::lock_guard lock(listMutex_);
        const auto returned = std::find_if(lost_.begin(), lost_.end(), [&](const std::shared_ptr<Place>& lost) {
            return lost->device->GetIdentity() == device->GetIdentity();
        });
        if (returned == lost_.end()) {
            place = std::make_shared<Place>();
        } else {
            place = *returned;
            lost_.erase(returned);
        }
        place->device = device;
        place->isListed = true;
        places_.push_back(place);
    }
    if (place->sink)
        place->isPluggedIn = device->Open(place->sink);
}

void InputDevices::Remove(const std::shared_ptr<MidiInputDevice>& device) {
    const std::lock_guard plug(plugMutex_);
    std::shared_ptr<Place> removed;
    {
        const std::lock_guard lock(listMutex_);
        const auto found = std::find_if(places_.begin(), places_.end(),
                                        [&](const std::shared_ptr<Place>& place) { return place->device == device; });
        if (found == places_.end())
            return;
        removed = *found;
        places_.erase(found);
        removed->isListed = false;
        if (removed->isOpen)
            lost_.push_back(removed);
    }
    Unplug(*removed);
}

void InputDevices::RemoveAll() {
    for (const auto& device : GetAll())
        Remove(device);
}

void InputDevices::Unplug(Place& place) {
    if (std::exchange(place.isPluggedIn, false))
        DeviceOf(place)->Close();
}

std::vector<std::shared_ptr<MidiInputDevice>> InputDevices::GetAll() const {
    const std::lock_guard lock(listMutex_);
    std::vector<std::shared_ptr<MidiInputDevice>> devices;
    for (const auto& place : places_)
        devices.push_back(place->device);
    return devices;
}

std::size_t InputDevices::GetCount() const {
    const std::lock_guard lock(listMutex_);
    return places_.size();
}

std::shared_ptr<InputDevices::Place> InputDevices::At(std::size_t index) const {
    const std::lock_guard lock(listMutex_);
    return index < places_.size() ? places_[index] : nullptr;
}

std::shared_ptr<MidiInputDevice> InputDevices::DeviceOf(const Place& place) const {
    const std::lock_guard lock(listMutex_);
    return place.device;
}

std::wstring InputDevices::GetName(const Place& place) const {
    return DeviceOf(place)->GetName();
}

MMRESULT InputDevices::Open(Place& place, MidiInputDevice::Sink sink) {
    const std::lock_guard plug(plugMutex_);
    {
        const std::lock_guard lock(listMutex_);
        if (!place.isListed)
            return MMSYSERR_BADDEVICEID;
        if (place.isOpen)
            return MMSYSERR_ALLOCATED;
        place.isOpen = true;
    }
    place.sink = std::move(sink);
    place.isPluggedIn = DeviceOf(place)->Open(place.sink);
    if (place.isPluggedIn)
        return MMSYSERR_NOERROR;
    place.sink = {};
    const std::lock_guard lock(listMutex_);
    place.isOpen = false;
    return MMSYSERR_ALLOCATED;
}

void InputDevices::Close(Place& place) {
    const std::lock_guard plug(plugMutex_);
    Unplug(place);
    place.sink = {};
    const std::lock_guard lock(listMutex_);
    place.isOpen = false;
    std::erase_if(lost_, [&](const std::shared_ptr<Place>& lost) { return lost.get() == &place; });
}

bool InputDevices::IsLost(const Place& place) const {
    const std::lock_guard lock(listMutex_);
    return place.isOpen && !place.isListed;
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::InputDevices;
using win32_layer::MidiInputs;

UINT midiInGetNumDevs() {
    return static_cast<UINT>(InputDevices::Instance().GetCount());
}

MMRESULT midiInGetDevCapsW(UINT_PTR device, LPMIDIINCAPSW caps, UINT capsBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kInputCaps))
        return *code;
    if (!caps)
        return MMSYSERR_INVALPARAM;
    auto place = InputDevices::Instance().At(device);
    if (!place)  // the platform takes an open handle as well as an index
        place = MidiInputs::Instance().GetPlace(reinterpret_cast<HMIDIIN>(device));
    if (!place)
        return MMSYSERR_BADDEVICEID;
    MIDIINCAPSW found{};
    found.vDriverVersion = 0x0100;
    // No zero after 32 characters: readers must not count on one.
    InputDevices::Instance().GetName(*place).copy(found.szPname, MAXPNAMELEN);
    std::memcpy(caps, &found, std::min<std::size_t>(capsBytes, sizeof(found)));
    return MMSYSERR_NOERROR;
}
