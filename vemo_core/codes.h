#pragma once

#include <cstdint>
#include <string>

#include "vemo_core/vemo_core_export.h"

namespace codes {

/// Event codes of the song log's sequences.
inline constexpr std::uint16_t kClick = 0x0101;
inline constexpr std::uint16_t kTempoScale = 0x0102;
inline constexpr std::uint16_t kTranspose = 0x0103;
inline constexpr std::uint16_t kMarker = 0x0104;

/// The name that the editor shows for an event code: "Click", "TempoScale",
/// "Transpose", "Marker"; "Unknown" for any other code.
VEMO_CORE_EXPORT std::string editNameByVemoEventCode(std::uint16_t code);

}  // namespace codes
