#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "vemo_core/vemo_core_export.h"
#include "vemo_core/voice_event.h"

namespace vemo_midi {

/// One voice of a song: its events in ascending time, the notes it can play and
/// what the operator sees of it. A value.
class VEMO_CORE_EXPORT VoiceTrack {
public:
    VoiceTrack(std::uint16_t trackId, std::string name, std::pair<std::uint8_t, std::uint8_t> noteRange,
               std::uint8_t defaultProgram, std::vector<VoiceEvent> events);

    std::uint16_t GetTrackId() const { return trackId_; }
    /// Lowest and highest note, both included.
    std::pair<std::uint8_t, std::uint8_t> GetNoteRange() const { return {lowNote_, highNote_}; }
    const std::vector<VoiceEvent>& GetEvents() const { return events_; }
    const std::string& GetTrackName() const { return name_; }
    std::uint8_t GetDefaultProgramChange() const { return defaultProgram_; }

private:
    std::uint16_t trackId_;
    std::uint8_t lowNote_;
    std::uint8_t highNote_;
    std::vector<VoiceEvent> events_;
    std::string name_;
    std::uint8_t defaultProgram_;
};

}  // namespace vemo_midi
