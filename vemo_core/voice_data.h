#pragma once

#include <cstdint>

#include "vemo_core/voice_track.h"
#include "zell/ptr_map.h"

namespace vemo_midi {

/// A song's voice tracks by ascending track id.
using VoiceData = zell::ptr_map<unsigned short, VoiceTrack>;

}  // namespace vemo_midi
