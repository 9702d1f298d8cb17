#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "place_name.h"

namespace win32_layer {

/// A place in a list of devices. It stays, and its index with it: a device that is removed
/// leaves it empty, for another device of the same identity alone.
template <typename DeviceType>
struct DevicePlace {
    using Device = DeviceType;
    DevicePlace(std::shared_ptr<Device> pluggedIn, std::wstring shownName)
        : identity(pluggedIn->GetIdentity()), name(std::move(shownName)), device(std::move(pluggedIn)) {}
    const std::string identity;
    const std::wstring name;         // no other place has it
    std::shared_ptr<Device> device;  // null while it is lost; guarded by the list
};

/// The places of one kind of device, in the order of adding.
///
/// Owner:   the list of inputs or of outputs, which lets one change at a time happen.
/// Threads: any.
/// Lock:    mutex_, a leaf, under which nothing is called: it alone is in a sender's way.
template <typename Place>
class DevicePlaces {
public:
    using Device = typename Place::Device;

    void Append(std::shared_ptr<Device> device) {
        std::vector<std::wstring> names;
        for (const auto& place : Copy())
            names.push_back(place->name);
        std::wstring name = NameNewPlace(device->GetName(), names);
        auto added = std::make_shared<Place>(std::move(device), std::move(name));
        const std::lock_guard lock(mutex_);
        places_.push_back(std::move(added));
    }
    /// The place that a device has left which was this one; null: none.
    std::shared_ptr<Place> FindLeftBy(const Device& device) const {
        const std::string identity = device.GetIdentity();
        return Find([&](const Place& place) { return !place.device && place.identity == identity; });
    }
    /// The device's own; null: none.
    std::shared_ptr<Place> FindOf(const std::shared_ptr<Device>& device) const {
        return Find([&](const Place& place) { return device && place.device == device; });
    }
    /// Returns what was there, which may end where no lock is held.
    std::shared_ptr<Device> Exchange(Place& place, std::shared_ptr<Device> device) {
        const std::lock_guard lock(mutex_);
        return std::exchange(place.device, std::move(device));
    }
    /// Empties the list.
    std::vector<std::shared_ptr<Place>> TakeAll() {
        const std::lock_guard lock(mutex_);
        return std::exchange(places_, {});
    }

    std::vector<std::shared_ptr<Device>> GetDevices() const {
        std::vector<std::shared_ptr<Device>> devices;
        for (const auto& place : Copy())
            if (auto device = GetDevice(*place))
                devices.push_back(std::move(device));
        return devices;
    }
    /// Null while it is lost.
    std::shared_ptr<Device> GetDevice(const Place& place) const {
        const std::lock_guard lock(mutex_);
        return place.device;
    }
    std::size_t GetCount() const {
        const std::lock_guard lock(mutex_);
        return places_.size();
    }
    /// Null beyond the list.
    std::shared_ptr<Place> At(std::size_t index) const {
        const std::lock_guard lock(mutex_);
        return index < places_.size() ? places_[index] : nullptr;
    }
    std::size_t IndexOf(const Place& place) const {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(places_.begin(), places_.end(),
                                        [&](const std::shared_ptr<Place>& one) { return one.get() == &place; });
        return static_cast<std::size_t>(found - places_.begin());
    }

private:
    std::vector<std::shared_ptr<Place>> Copy() const {
        const std::lock_guard lock(mutex_);
        return places_;
    }
    template <typename Condition>
    std::shared_ptr<Place> Find(Condition condition) const {
        const std::lock_guard lock(mutex_);
        for (const auto& place : places_)
            if (condition(*place))
                return place;
        return nullptr;
    }

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Place>> places_;  // guarded by mutex_
};

}  // namespace win32_layer
