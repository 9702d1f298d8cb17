#pragma once

#include <string>

namespace win32_layer {

/// What this program is called among the system's MIDI programs. JACK appends a number
/// where the name is taken.
inline constexpr char kClientName[] = "vemo_player";

/// Of "client:port", as both systems have it: whether the program, this one or another
/// running beside it, has that port itself.
inline bool IsOwnPort(const std::string& name) {
    const std::string own = kClientName;
    return name.starts_with(own + ":") || name.starts_with(own + "-");
}

}  // namespace win32_layer
