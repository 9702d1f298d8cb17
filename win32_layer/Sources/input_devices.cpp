#include "input_devices.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "faults.h"
#include "midi_inputs.h"
#include "place_name.h"

namespace win32_layer {

InputDevices& InputDevices::Instance() {
    static InputDevices* const instance = new InputDevices;
    return *instance;
}

bool InputDevices::Add(std::shared_ptr<MidiInputDevice> device) {
    const std::lock_guard plug(plugMutex_);
    const std::string identity = device->GetIdentity();
    const std::wstring deviceName = device->GetName();
    std::shared_ptr<Place> place;
    {
        const std::lock_guard lock(listMutex_);
        const auto returned = std::find_if(places_.begin(), places_.end(), [&](const std::shared_ptr<Place>& one) {
            return !one->device && one->identity == identity;
        });
        if (returned == places_.end()) {
            std::vector<std::wstring> names;
            for (const auto& one : places_)
                names.push_back(one->name);
            places_.push_back(std::make_shared<Place>(std::move(device), NameNewPlace(deviceName, names)));
            return true;
        }
        place = *returned;
    }
    if (place->plugIn) {
        if (!device->Open(place->plugIn()))
            return false;
        place->opened = device;
    }
    const std::lock_guard lock(listMutex_);
    place->device = std::move(device);
    return true;
}

void InputDevices::Remove(const std::shared_ptr<MidiInputDevice>& device) {
    const std::lock_guard plug(plugMutex_);
    std::shared_ptr<Place> removed;
    {
        const std::lock_guard lock(listMutex_);
        const auto found = std::find_if(places_.begin(), places_.end(),
                                        [&](const std::shared_ptr<Place>& place) { return place->device == device; });
        if (!device || found == places_.end())
            return;
        removed = *found;
        removed->device = nullptr;
    }
    Unplug(*removed);
}

void InputDevices::RemoveAll() {
    std::vector<std::shared_ptr<Place>> removed;
    std::vector<std::shared_ptr<MidiInputDevice>> devices;  // one may end in here, without the lock
    const std::lock_guard plug(plugMutex_);
    {
        const std::lock_guard lock(listMutex_);
        removed.swap(places_);
        for (const auto& place : removed)
            devices.push_back(std::exchange(place->device, nullptr));
    }
    for (const auto& place : removed)
        Unplug(*place);
}

void InputDevices::Unplug(Place& place) {
    if (const auto opened = std::exchange(place.opened, nullptr))
        opened->Close();
}

std::vector<std::shared_ptr<MidiInputDevice>> InputDevices::GetAll() const {
    const std::lock_guard lock(listMutex_);
    std::vector<std::shared_ptr<MidiInputDevice>> devices;
    for (const auto& place : places_)
        if (place->device)
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

bool InputDevices::IsLost(const Place& place) const {
    const std::lock_guard lock(listMutex_);
    return !place.device;
}

MMRESULT InputDevices::Open(Place& place, PlugIn plugIn) {
    const std::lock_guard plug(plugMutex_);
    std::shared_ptr<MidiInputDevice> device;
    {
        const std::lock_guard lock(listMutex_);
        device = place.device;
    }
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
    place->name.copy(found.szPname, MAXPNAMELEN);
    std::memcpy(caps, &found, std::min<std::size_t>(capsBytes, sizeof(found)));
    return MMSYSERR_NOERROR;
}
