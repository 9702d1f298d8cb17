#pragma once

#include <cstdint>

#include "vemo_core/timeline.h"
#include "vemo_core/vemo_core_export.h"
#include "vemo_core/voice_data.h"

namespace vemo_midi {

/// One song: its voice tracks, its timeline, where it begins and its resolution
/// in ticks per quarter note. A copyable value.
class VEMO_CORE_EXPORT SongData {
public:
    SongData();
    SongData(VoiceData voiceData, TL::Timeline timeline, std::uint32_t songStartTickIndex, std::uint16_t resolution);

    const VoiceData& GetVoiceData() const { return voiceData_; }
    const TL::Timeline& GetTimeline() const { return timeline_; }
    std::uint32_t GetSongStartTickIndex() const { return songStartTickIndex_; }
    std::uint16_t GetResolution() const { return resolution_; }

private:
    VoiceData voiceData_;
    TL::Timeline timeline_;
    std::uint32_t songStartTickIndex_ = 0;
    std::uint16_t resolution_ = 24;
};

}  // namespace vemo_midi
