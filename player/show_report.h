#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "player/activity_meter.h"
#include "player/command_input.h"
#include "player/playback_record.h"
#include "player/show_control.h"
#include "player/song_times.h"
#include "player/transport_snapshot.h"

namespace player {

/// Tells of a running show in JSON, as the control socket sends it: one object,
/// without a line end. What the fields are, docs/playing-a-show.md says.
///
/// Owner:   one reader of snapshots. Keeps what it has worked out for the latest show.
/// Threads: one at a time.
class ShowReport {
public:
    /// What the snapshot does not know: the device, the time code, the inputs and how many
    /// songs are built.
    struct Device {
        std::string name;
        std::string state;  // "ok", "stalled", "lost" or "fault"
        bool operator==(const Device&) const = default;
    };
    /// Of the time code that is sent.
    struct TimeCode {
        std::string state = "off";  // "off", "on" or "lost"
        std::string rate;
        bool operator==(const TimeCode&) const = default;
    };
    /// How many songs are built, and how many there are to build.
    using Progress = std::pair<std::size_t, std::size_t>;
    struct Surroundings {
        Device device;
        TimeCode timeCode;
        CommandInput::Report commandInput;
        ShowControl::Report showControl;
        Progress progress;
        bool operator==(const Surroundings&) const = default;
    };

    /// Nothing is heard where the music stands.
    std::string StateOf(const TransportSnapshot& snapshot, const std::optional<PlaybackRecord>& heard,
                        const Surroundings& surroundings);
    /// Of each track, from 1: the operator's, else the song's latest up to the place, else
    /// the one that the show file or the track begins with.
    std::vector<int> ProgramsOf(const TransportSnapshot& snapshot, const std::optional<PlaybackRecord>& heard);
    /// Of what is heard while the music plays. timeCode: the label that is sent.
    std::string PositionOf(const TransportSnapshot& snapshot, const PlaybackRecord& heard,
                           const std::vector<int>& activeChannels, const std::string& timeCode);
    /// Of where it stands.
    std::string PositionOf(const TransportSnapshot& snapshot, const std::string& timeCode);

private:
    void Prepare(const TransportSnapshot& snapshot);
    void PreparePrograms(unsigned int song);
    PlaybackRecord PlaceOf(const TransportSnapshot& snapshot) const;

    std::shared_ptr<const Show> show_;
    std::vector<std::unique_ptr<SongTimes>> times_;  // null for a song that cannot be played
    /// From its tick on, up to the next.
    struct ProgramChange {
        std::uint32_t tick = 0;
        int program = 1;
    };
    // Of one song by channel, ascending, the first at tick 0: it is asked for many times a second.
    std::map<int, std::vector<ProgramChange>> programs_;
    unsigned int programsSong_ = 0;  // that programs_ are of, from 1; 0: none
};

}  // namespace player
