#include "player/loaded_song.h"

#include <algorithm>
#include <utility>

namespace player {

LoadedSong::LoadedSong(SongToPlay toPlay, UserControls& userControls, MidiClock& clock)
    : plan(std::move(toPlay)),
      ticksPerClock(plan.song->song.GetResolution() / 24u),
      startTick(0),
      endTick(std::min(plan.endTick.value_or(plan.song->song.GetTimeline().GetLastTickIndex() + 1),
                       plan.song->song.GetTimeline().GetLastTickIndex() + 1)),
      fillTracker(userControls),
      playTracker(userControls, clock) {
    const vemo_midi::SongData& data = plan.song->song;
    fillTracker.SetData(plan.song->log, data.GetTimeline(), data.GetResolution());
    playTracker.SetData(plan.song->log, data.GetTimeline(), data.GetResolution());
    startTick = playTracker.RoundDownToNearestClock(plan.startTick);
    for (const std::uint32_t pause : plan.pauses)
        pauses.push_back(playTracker.RoundDownToNearestClock(pause));
    fillTracker.Seek(startTick);
    playTracker.Seek(startTick);
}

}  // namespace player
