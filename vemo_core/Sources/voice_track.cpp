#include "vemo_core/voice_track.h"

namespace vemo_midi {

VoiceTrack::VoiceTrack(std::uint16_t trackId, std::string name, std::pair<std::uint8_t, std::uint8_t> noteRange,
                       std::uint8_t defaultProgram, std::vector<VoiceEvent> events)
    : trackId_(trackId),
      lowNote_(noteRange.first),
      highNote_(noteRange.second),
      events_(std::move(events)),
      name_(std::move(name)),
      defaultProgram_(defaultProgram) {}

}  // namespace vemo_midi
