#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "player/show.h"
#include "player/transport_command.h"

namespace player {

/// What the operator may want to know of a running show, at one moment. Immutable
/// and numbered: a higher number is later.
///
/// Units: channels 1..16; programs 1..128; trims in percent; ticks of the song.
struct TransportSnapshot {
    struct Entry {
        std::size_t song = 0;  // in the show, from 0
        AfterSong then = AfterSong::kStop;
        std::uint64_t id = 0;  // stays with it, wherever it is moved
        bool operator==(const Entry&) const = default;
    };
    struct Track {
        int channel = 1;
        std::string name;
        int program = 1;
        bool programIsUsers = false;
        int trim = 100;
        bool muted = false;
    };
    struct Message {
        std::uint64_t number = 0;  // from 1; one that is missing was pushed out by later ones
        std::string text;
    };

    std::uint64_t number = 0;
    TransportState state = TransportState::kEmpty;
    std::shared_ptr<const Show> show;  // null without one
    std::vector<Entry> setList;
    std::optional<std::size_t> entry;      // of the set list, from 0; empty for a song outside it
    std::optional<std::size_t> nextEntry;  // what comes after it
    unsigned int song = 0;                 // from 1; 0: none
    std::string title;
    std::uint32_t tick = 0;  // where it stands; while playing, where it started
    double tempoScale = 1;
    int transposition = 0;
    bool holds = false;  // tempo scale and transposition stay from song to song
    std::optional<std::string> patch;
    bool hasClick = false;
    bool clickIsMuted = false;
    int guiDelayMilliseconds = 0;
    std::vector<Track> tracks;
    std::set<int> mutes;                                 // also of channels that the song lacks
    std::map<int, int> trims;                            // that were ever set
    std::map<std::string, std::map<int, int>> programs;  // the operator's, by song key and channel
    std::vector<Message> messages;                       // the latest, oldest first
    std::size_t songsLoaded = 0;
    std::size_t songsToLoad = 0;
};

}  // namespace player
