#pragma once

#include <cstdint>
#include <vector>

#include "player/imported_song.h"

namespace player {

/// When a tick of a song comes, so that the operator sees how long it goes on.
///
/// Owner:   a value; the song may go.
/// Threads: any, once made.
/// Units:   seconds from the song's first tick, at the song's own tempo with its own
///          tempo scales: an operator's scale divides them.
class SongTimes {
public:
    explicit SongTimes(const ImportedSong& song);

    double SecondsAt(std::uint32_t tick) const;
    double GetLength() const { return length_; }

private:
    /// From its tick on, up to the next.
    struct Stretch {
        std::uint32_t tick = 0;
        double seconds = 0;
        double secondsPerTick = 0;
    };

    std::vector<Stretch> stretches_;  // ascending, the first at tick 0
    double length_ = 0;
};

}  // namespace player
