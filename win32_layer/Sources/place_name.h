#pragma once

#include <string>
#include <vector>

namespace win32_layer {

/// The name that a device's new place in a list is shown under: the device's own, with
/// " 2", " 3" and so on where a place has it already. Devices are chosen and remembered by
/// name, so two that read the same in the 31 characters that are safely shown would be
/// taken for each other.
///
/// Threads: any.
std::wstring NameNewPlace(const std::wstring& deviceName, const std::vector<std::wstring>& taken);

}  // namespace win32_layer
