#include "vemo_core/song_data.h"

#include <utility>

namespace vemo_midi {

SongData::SongData() = default;

SongData::SongData(VoiceData voiceData, TL::Timeline timeline, std::uint32_t songStartTickIndex,
                   std::uint16_t resolution)
    : voiceData_(std::move(voiceData)),
      timeline_(std::move(timeline)),
      songStartTickIndex_(songStartTickIndex),
      resolution_(resolution) {}

}  // namespace vemo_midi
