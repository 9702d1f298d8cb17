#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "player/bar_beat.h"

namespace player {

/// What kind of show it is.
enum class ShowKind {
    kPrograms,  // songs with default programs; everything transposes but the percussion on channel 10
    kRanges     // tracks transpose within their note range; volume trims and groups hold across songs
};

/// What follows a song of the set list.
enum class AfterSong {
    kStop,  // nothing; the operator chooses
    kWait,  // the next song stands ready and starts on one key
    kGo     // the next song, at once
};

/// A place in a song, as the show file gives it: a bar and beat, or a tick.
using ShowPlace = std::variant<BarBeat, std::uint32_t>;

/// What a show file says, understood and in range, but without its songs: a place
/// may still lie beyond the end of its song.
///
/// Owner: whoever reads or writes it; a value.
/// Units: channels 1..16; programs 1..128; notes 0..127; trims in percent, 0..127;
///        factors 0.5..2; semitones -12..12. What lies between two places covers
///        the first and not the second.
struct ShowDocument {
    struct Group {
        int number = 1;  // 1..255
        std::string name;
        std::set<int> channels;
    };
    struct Click {
        ShowPlace from, to;
        int notated32 = 8;  // thirty-second notes a click
    };
    struct TempoScale {
        ShowPlace from, to;
        double factor = 1;
    };
    struct Transposition {
        ShowPlace from, to;
        int semitones = 0;
    };
    struct Marker {
        ShowPlace at;
        std::string text;
    };
    struct Page {
        ShowPlace at;
        unsigned int number = 1;
    };
    struct Track {
        std::optional<std::string> name;
        std::optional<int> program;
        std::optional<std::pair<int, int>> range;  // kRanges only; lowest and highest note
    };
    struct Patch {
        std::string name;
        std::map<int, int> programs;  // by channel
    };
    /// An audible click, made by the player.
    struct ClickTrack {
        int channel = 10;
        int note = 77;
        int accent = 76;  // on the first beat of a bar
        bool muted = false;
    };
    struct Song {
        std::string key;
        std::string file;  // relative to the show file
        std::optional<int> number;
        std::optional<std::string> title;
        std::optional<ShowPlace> start;
        int countInBars = 0;  // 0..8
        std::vector<TempoScale> tempoScales;
        std::vector<Transposition> transpositions;
        std::vector<Click> clicks;
        std::vector<Marker> markers;
        std::vector<Page> pages;
        std::vector<ShowPlace> pauses;
        std::map<int, Track> tracks;  // by channel
        std::vector<Patch> patches;
        std::optional<ClickTrack> clickTrack;
    };
    /// Where MIDI Show Control comes from, and what of it is meant for this show.
    struct ShowControl {
        std::string input;    // a device's name
        int deviceId = 0;     // 0..111
        std::string cueList;  // empty: every list is heard
        bool operator==(const ShowControl&) const = default;
    };
    struct SetListEntry {
        std::string song;  // a song's key
        AfterSong then = AfterSong::kStop;
        bool operator==(const SetListEntry&) const = default;
    };

    std::string title;
    ShowKind kind = ShowKind::kPrograms;
    std::vector<Group> groups;  // kRanges only
    std::map<int, int> trims;   // kRanges only; by channel, where the show starts
    std::set<int> mutes;        // channels, where the show starts
    std::vector<Song> songs;    // in the order of the show's time axis
    std::vector<SetListEntry> setList;
    bool timeCodeActive = false;
    std::optional<ShowControl> showControl;
};

}  // namespace player
