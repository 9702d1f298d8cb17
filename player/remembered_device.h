#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace player {

/// A device by its name, in a file beside the settings that know it by its index alone:
/// after a device was plugged in or out, an index may mean another one.
///
/// Owner: whoever keeps the settings; a value.
/// Errors: Store() throws zell::IoError.
class RememberedDevice {
public:
    /// settingsFile: empty where nothing is kept.
    explicit RememberedDevice(const std::filesystem::path& settingsFile);

    /// Empty where none was stored, or it cannot be read.
    std::string GetName() const;
    void Store(const std::string& name) const;
    /// The index, where it still means that device or no name was stored; else the one
    /// that has the name now; nothing where no device has it.
    std::optional<std::size_t> Find(std::size_t index, const std::vector<std::string>& names) const;

private:
    std::filesystem::path file_;
};

}  // namespace player
