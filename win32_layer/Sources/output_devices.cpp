#include "output_devices.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "faults.h"
#include "midi_streams.h"
#include "place_name.h"

namespace win32_layer {

OutputDevices& OutputDevices::Instance() {
    static OutputDevices* const instance = new OutputDevices;
    return *instance;
}

bool OutputDevices::Add(std::shared_ptr<MidiOutputDevice> device) {
    const std::lock_guard changes(changesMutex_);
    const auto place = FindLost(*device);
    if (!place) {
        std::wstring name = NameNewPlace(device->GetName(), GetNames());
        auto added = std::make_shared<Place>(std::move(device), std::move(name));
        const std::lock_guard lock(mutex_);
        places_.push_back(std::move(added));
        return true;
    }
    // The open handles stay valid, and know nothing of the change beneath them.
    for (int opened = 0; opened < place->streams; ++opened) {
        if (device->Open())
            continue;
        for (; opened > 0; --opened)
            device->Close();
        return false;
    }
    {
        const std::lock_guard lock(mutex_);
        place->device = std::move(device);
    }
    Tell(*place, OutputChange::kReturned);
    return true;
}

std::shared_ptr<OutputDevices::Place> OutputDevices::FindLost(const MidiOutputDevice& device) const {
    const std::string identity = device.GetIdentity();
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(places_.begin(), places_.end(), [&](const std::shared_ptr<Place>& place) {
        return !place->device && place->identity == identity;
    });
    return found == places_.end() ? nullptr : *found;
}

std::vector<std::wstring> OutputDevices::GetNames() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::wstring> names;
    for (const auto& place : places_)
        names.push_back(place->name);
    return names;
}

void OutputDevices::Remove(const std::shared_ptr<MidiOutputDevice>& device) {
    const std::lock_guard changes(changesMutex_);
    std::shared_ptr<Place> place;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(places_.begin(), places_.end(),
                                        [&](const std::shared_ptr<Place>& one) { return one->device == device; });
        if (!device || found == places_.end())
            return;
        place = *found;
        place->device = nullptr;
    }
    for (int open = 0; open < place->streams; ++open)
        device->Close();
    Tell(*place, OutputChange::kLost);
}

void OutputDevices::RemoveAll() {
    std::vector<std::shared_ptr<Place>> removed;
    std::vector<std::shared_ptr<MidiOutputDevice>> devices;  // one may end in here, without the lock
    const std::lock_guard changes(changesMutex_);
    {
        const std::lock_guard lock(mutex_);
        removed.swap(places_);
        for (const auto& place : removed)
            devices.push_back(std::exchange(place->device, nullptr));
    }
    for (std::size_t i = 0; i < removed.size(); ++i)
        for (int open = 0; devices[i] && open < removed[i]->streams; ++open)
            devices[i]->Close();
}

void OutputDevices::SetExclusive(const std::shared_ptr<MidiOutputDevice>& device, bool exclusive) {
    const std::lock_guard changes(changesMutex_);
    const std::lock_guard lock(mutex_);
    for (const auto& place : places_)
        if (place->device == device)
            place->exclusive = exclusive;
}

void OutputDevices::SetObserver(Layer::OutputObserver observer) {
    const std::lock_guard changes(changesMutex_);
    observer_.swap(observer);
}

void OutputDevices::Tell(const Place& place, OutputChange change) const {
    if (!observer_ || place.streams == 0)
        return;
    std::size_t index = 0;
    {
        const std::lock_guard lock(mutex_);
        while (index < places_.size() && places_[index].get() != &place)
            ++index;
    }
    observer_(index, change);
}

std::vector<std::shared_ptr<MidiOutputDevice>> OutputDevices::GetAll() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<MidiOutputDevice>> devices;
    for (const auto& place : places_)
        if (place->device)
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

std::shared_ptr<MidiOutputDevice> OutputDevices::GetDevice(const Place& place) const {
    const std::lock_guard lock(mutex_);
    return place.device;
}

MMRESULT OutputDevices::Open(Place& place) {
    const std::lock_guard changes(changesMutex_);
    const auto device = GetDevice(place);
    if (!device)
        return MMSYSERR_NODRIVER;
    if ((place.exclusive && place.streams > 0) || !device->Open())
        return MMSYSERR_ALLOCATED;
    ++place.streams;
    return MMSYSERR_NOERROR;
}

void OutputDevices::Close(Place& place) {
    const std::lock_guard changes(changesMutex_);
    if (const auto device = GetDevice(place))
        device->Close();
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
    place->name.copy(found.szPname, MAXPNAMELEN);  // no zero after 32 characters: readers must not count on one
    found.wTechnology = MOD_MIDIPORT;
    found.wChannelMask = 0xFFFF;
    found.dwSupport = MIDICAPS_STREAM;
    std::memcpy(caps, &found, std::min<std::size_t>(capsBytes, sizeof(found)));
    return MMSYSERR_NOERROR;
}
