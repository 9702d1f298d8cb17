#pragma once

#include <windows.h>

#include <cstddef>
#include <string>

/// Up to the terminating zero or, where there is none, all of the field: the low 8
/// bits of each UTF-16 unit.
inline std::string NarrowText(const WCHAR* text, std::size_t length) {
    std::string narrowed;
    for (std::size_t i = 0; i < length && text[i] != 0; ++i)
        narrowed += static_cast<char>(text[i] & 0xFF);
    return narrowed;
}
