#include "player/remembered_device.h"

#include <algorithm>
#include <cstdint>
#include <fstream>

#include "player/atomic_file.h"

namespace player {

RememberedDevice::RememberedDevice(const std::filesystem::path& settingsFile) : file_(settingsFile) {
    if (!file_.empty())
        file_ += ".device";
}

std::string RememberedDevice::GetName() const {
    std::ifstream input(file_, std::ios::binary);
    std::string name;
    std::getline(input, name);
    return name;
}

void RememberedDevice::Store(const std::string& name) const {
    if (file_.empty())
        return;
    const std::string line = name + "\n";
    AtomicFile file(file_);
    file.Write({reinterpret_cast<const std::uint8_t*>(line.data()), line.size()});
    file.Commit();
}

std::optional<std::size_t> RememberedDevice::Find(std::size_t index, const std::vector<std::string>& names) const {
    const std::string name = file_.empty() ? std::string() : GetName();
    if (index < names.size() && (name.empty() || names[index] == name))
        return index;
    const auto found = std::find(names.begin(), names.end(), name);
    if (name.empty() || found == names.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - names.begin());
}

}  // namespace player
