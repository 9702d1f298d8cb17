#pragma once

#include <cstdint>
#include <ostream>

#include "vemo_core/vemo_core_export.h"

namespace std_midi {

/// A channel message of the MIDI 1.0 standard: status 0x80..0xEF with the
/// channel in its low four bits, then one or two data bytes.
struct VoiceMessage {
    std::uint8_t status = 0;
    std::uint8_t data1 = 0;
    std::uint8_t data2 = 0;
    bool operator==(const VoiceMessage&) const = default;
};

}  // namespace std_midi

namespace vemo_midi {

/// One MIDI channel event of a voice track. A track id carries the output port
/// (id >> 4) and the channel (id & 0x0F); the event keeps the channel.
struct VEMO_CORE_EXPORT VoiceEvent {
    VoiceEvent() = default;
    /// Stores status OR (trackId & 0x0F): callers pass a bare status such as 0xB0.
    VoiceEvent(std::uint32_t tickTime, std::uint8_t status, std::uint16_t trackId, std::uint8_t data1,
               std::uint8_t data2)
        : time(tickTime), message{static_cast<std::uint8_t>(status | (trackId & 0x0F)), data1, data2} {}

    /// Status 0x80..0xEF and both data bytes below 0x80.
    bool IsValidVoiceEvent() const;
    /// "time=480 status=0x93 data1=60 data2=100"
    void WriteString(std::ostream& out) const;
    bool operator==(const VoiceEvent&) const = default;

    std::uint32_t time = 0;
    std_midi::VoiceMessage message;
};
static_assert(sizeof(VoiceEvent) == 8);

}  // namespace vemo_midi
