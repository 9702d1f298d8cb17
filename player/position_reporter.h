#pragma once

#include <functional>
#include <memory>
#include <string>

#include "player/current_show.h"
#include "player/playback_feed.h"

namespace player {

/// Turns playback records into what a reader of the position wants to know: songs,
/// clicks, and changes of tempo, meter, key and marker.
///
/// Owner:   one reader of the feed; the show outlives it.
/// Threads: one at a time.
class PositionReporter {
public:
    /// One event; every text is ready to be shown.
    struct Event {
        const char* name = "";  // song, click, tempo, meter, key, marker or end
        unsigned int song = 0;
        std::string title;
        std::uint32_t bar = 1;
        std::uint32_t beat = 1;
        std::uint32_t tick = 0;
        double seconds = 0;
        double tempo = 0;  // clicks per minute
        std::string meter;
        std::string key;
        std::string marker;  // empty before the first

        /// One JSON object without a line end.
        std::string AsJson() const;
        /// One line for a person.
        std::string AsText() const;
    };

    PositionReporter(const CurrentShow& show, std::function<void(const Event&)> receiver);
    void Take(const PlaybackRecord& record);

private:
    void Report(const char* name);

    const CurrentShow& show_;
    const std::function<void(const Event&)> receiver_;
    std::shared_ptr<const ImportedSong> song_;
    Event now_;
    bool started_ = false;
};

}  // namespace player
