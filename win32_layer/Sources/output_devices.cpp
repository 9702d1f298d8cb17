#include "output_devices.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "faults.h"
#include "midi_streams.h"

namespace win32_layer {

OutputDevices& OutputDevices::Instance() {
    static OutputDevices* const instance = new OutputDevices;
    return *instance;
}

void OutputDevices::Add(std::shared_ptr<MidiOutputDevice> device) {
    auto place = std::make_shared<Place>(std::move(device));
    const std::lock_guard lock(mutex_);
    places_.push_back(std::move(place));
}

void OutputDevices::Remove(const std::shared_ptr<MidiOutputDevice>& device) {
    const std::lock_guard lock(mutex_);
    std::erase_if(places_, [&](const std::shared_ptr<Place>& place) {
        if (place->device != device)
            return false;
        place->present = false;
        return true;
    });
}

void OutputDevices::RemoveAll() {
    std::vector<std::shared_ptr<Place>> removed;  // a device may end in here, without the lock
    const std::lock_guard lock(mutex_);
    for (const auto& place : places_)
        place->present = false;
    removed.swap(places_);
}

void OutputDevices::SetExclusive(const std::shared_ptr<MidiOutputDevice>& device, bool exclusive) {
    const std::lock_guard lock(mutex_);
    for (const auto& place : places_)
        if (place->device == device)
            place->exclusive = exclusive;
}

std::vector<std::shared_ptr<MidiOutputDevice>> OutputDevices::GetAll() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<MidiOutputDevice>> devices;
    for (const auto& place : places_)
        devices.push_back(place->device);
    return devices;
}

std::size_t OutputDevices::GetCount() const {
    const std::lock_guard lock(mutex_);
    return places_.size();
}

std::shared_ptr<OutputDevices::Place> OutputDevices::At(std::size_t index) const {
    const std::lock_guard lock(mutex_);
    return index < places_.size() ? places_[index] : nullptr;
}

MMRESULT OutputDevices::Open(Place& place) {
    {
        const std::lock_guard lock(mutex_);
        if (place.exclusive && place.streams > 0)
            return MMSYSERR_ALLOCATED;
        ++place.streams;  // taken before the device is asked, so that two opens at once cannot both get it
    }
    if (place.device->Open())
        return MMSYSERR_NOERROR;
    const std::lock_guard lock(mutex_);
    --place.streams;
    return MMSYSERR_ALLOCATED;
}

void OutputDevices::Close(Place& place) {
    place.device->Close();
    const std::lock_guard lock(mutex_);
    --place.streams;
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::MidiStreams;
using win32_layer::OutputDevices;

UINT midiOutGetNumDevs() {
    return static_cast<UINT>(OutputDevices::Instance().GetCount());
}

MMRESULT midiOutGetDevCapsW(UINT_PTR device, LPMIDIOUTCAPSW caps, UINT capsBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kDeviceCaps))
        return *code;
    if (!caps)
        return MMSYSERR_INVALPARAM;
    auto place = OutputDevices::Instance().At(device);
    if (!place)  // the platform takes an open handle as well as an index
        place = MidiStreams::Instance().GetPlace(reinterpret_cast<HMIDISTRM>(device));
    if (!place)
        return MMSYSERR_BADDEVICEID;

    MIDIOUTCAPSW found{};
    found.vDriverVersion = 0x0100;
    const std::wstring name = place->device->GetName();
    name.copy(found.szPname, MAXPNAMELEN);  // no zero after 32 characters: readers must not count on one
    found.wTechnology = MOD_MIDIPORT;
    found.wChannelMask = 0xFFFF;
    found.dwSupport = MIDICAPS_STREAM;
    std::memcpy(caps, &found, std::min<std::size_t>(capsBytes, sizeof(found)));
    return MMSYSERR_NOERROR;
}
