#pragma once

#include <string_view>

/// The messages of the notification channel. Constants: usable before and after
/// every other global object.
namespace notify::names {

/// Payload: const std::map<unsigned short, unsigned char>*, (port << 8 | channel) to program.
inline constexpr std::string_view currentProgramIds = "currentProgramIds";
/// No payload.
inline constexpr std::string_view disarmedPlayback = "disarmedPlayback";

}  // namespace notify::names
