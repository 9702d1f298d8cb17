#include "place_name.h"

#include <windows.h>

#include <mmsystem.h>

#include <algorithm>
#include <cstddef>

namespace win32_layer {

namespace {

constexpr std::size_t kShownCharacters = MAXPNAMELEN - 1;

/// A real device's characters are the bytes of UTF-8: none of it is cut in two.
std::wstring CutTo(std::size_t size, const std::wstring& name) {
    if (name.size() <= size)
        return name;
    while (size > 0 && name[size] >= 0x80 && name[size] <= 0xBF)
        --size;
    return name.substr(0, size);
}

}  // namespace

std::wstring NameNewPlace(const std::wstring& deviceName, const std::vector<std::wstring>& taken) {
    std::wstring name = deviceName;
    const auto isSame = [&](const std::wstring& other) {
        return other.compare(0, kShownCharacters, name, 0, kShownCharacters) == 0;
    };
    for (int number = 2; std::any_of(taken.begin(), taken.end(), isSame); ++number) {
        const std::wstring suffix = L" " + std::to_wstring(number);
        name = CutTo(kShownCharacters - suffix.size(), deviceName) + suffix;
    }
    return name;
}

}  // namespace win32_layer
