#include "output_devices.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "faults.h"
#include "midi_streams.h"

namespace win32_layer {

OutputDevices& OutputDevices::Instance() {
    static OutputDevices* const instance = new OutputDevices;
    return *instance;
}

bool OutputDevices::Add(std::shared_ptr<MidiOutputDevice> device) {
    const std::lock_guard changes(changesMutex_);
    const auto place = places_.FindLeftBy(*device);
    if (!place) {
        places_.Append(std::move(device));
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
    places_.Exchange(*place, std::move(device));
    Tell(*place, OutputChange::kReturned);
    return true;
}

void OutputDevices::Remove(const std::shared_ptr<MidiOutputDevice>& device) {
    const std::lock_guard changes(changesMutex_);
    const auto place = places_.FindOf(device);
    if (!place)
        return;
    places_.Exchange(*place, nullptr);
    for (int open = 0; open < place->streams; ++open)
        device->Close();
    Tell(*place, OutputChange::kLost);
}

void OutputDevices::RemoveAll() {
    const std::lock_guard changes(changesMutex_);
    for (const auto& place : places_.TakeAll()) {
        const auto device = places_.Exchange(*place, nullptr);
        for (int open = 0; device && open < place->streams; ++open)
            device->Close();
    }
}

void OutputDevices::SetExclusive(const std::shared_ptr<MidiOutputDevice>& device, bool exclusive) {
    const std::lock_guard changes(changesMutex_);
    if (const auto place = places_.FindOf(device))
        place->exclusive = exclusive;
}

void OutputDevices::SetObserver(Layer::OutputObserver observer) {
    const std::lock_guard changes(changesMutex_);
    observer_.swap(observer);
}

void OutputDevices::Tell(const Place& place, OutputChange change) const {
    if (observer_ && place.streams > 0)
        observer_(places_.IndexOf(place), change);
}

MMRESULT OutputDevices::Open(Place& place) {
    const std::lock_guard changes(changesMutex_);
    const auto device = places_.GetDevice(place);
    if (!device)
        return MMSYSERR_NODRIVER;
    if ((place.exclusive && place.streams > 0) || !device->Open())
        return MMSYSERR_ALLOCATED;
    ++place.streams;
    return MMSYSERR_NOERROR;
}

void OutputDevices::Close(Place& place) {
    const std::lock_guard changes(changesMutex_);
    if (const auto device = places_.GetDevice(place))
        device->Close();
    --place.streams;
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::MidiStreams;
using win32_layer::OutputDevices;

UINT midiOutGetNumDevs() {
    return static_cast<UINT>(OutputDevices::Instance().GetPlaces().GetCount());
}

MMRESULT midiOutGetDevCapsW(UINT_PTR device, LPMIDIOUTCAPSW caps, UINT capsBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kDeviceCaps))
        return *code;
    if (!caps)
        return MMSYSERR_INVALPARAM;
    auto place = OutputDevices::Instance().GetPlaces().At(device);
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
