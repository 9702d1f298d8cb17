#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace player {

/// The index of the device that somebody has named, by its name or by its index in
/// digits; a name comes first. kind: "input" or "output". std::invalid_argument with one
/// line, which lists the devices, where there is none.
std::size_t ChooseDevice(const std::string& kind, const std::string& wanted, const std::vector<std::string>& names);

}  // namespace player
