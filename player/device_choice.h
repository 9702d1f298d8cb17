#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace player {

/// The index of the device that somebody has named, by its name or by its index in
/// digits; a name comes first. kind: "input" or "output". std::invalid_argument with one
/// line, which lists the devices, where there is none. isLost: empty where none can be; a
/// device that is lost is not listed, but can be chosen: whoever does may wait for it.
std::size_t ChooseDevice(const std::string& kind, const std::string& wanted, const std::vector<std::string>& names,
                         const std::function<bool(std::size_t index)>& isLost = {});

}  // namespace player
