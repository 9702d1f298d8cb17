#pragma once

#include <string>
#include <string_view>

namespace player {

/// A device's name, as the platform tells it, as one line of UTF-8: as operators type
/// it and files keep it.
///
/// field:   up to its terminating zero, or all of it. UTF-16 or, as devices of systems
///          are told that have no wide names, a character for each byte of UTF-8; cut
///          off where the field ends, a character that was begun goes.
/// Threads: any.
std::string DeviceName(std::wstring_view field);

}  // namespace player
