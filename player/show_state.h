#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "player/show_document.h"

namespace player {

/// Where a show stands and what the operator has set, kept beside the show file so
/// that a player that was cut off comes back to it.
///
/// Owner: whoever saves or resumes; a value.
/// Units: as ShowDocument; ticks of the song.
struct ShowState {
    std::vector<ShowDocument::SetListEntry> setList;
    std::optional<std::size_t> entry;  // of the set list, from 0
    std::string song;                  // its key; empty: none
    std::uint32_t tick = 0;
    std::string bar;  // "12:1", for whoever reads the file
    double tempoScale = 1;
    int transposition = 0;
    bool holds = false;
    std::set<int> mutes;
    std::map<int, int> trims;
    std::map<std::string, std::map<int, int>> programs;  // by song key and channel
    bool operator==(const ShowState&) const = default;

    /// The file that belongs to a show file.
    static std::filesystem::path PathFor(const std::filesystem::path& showFile);
    std::string AsJson() const;
    /// std::invalid_argument with one line for what is no such state.
    static ShowState Parse(const std::string& json);
};

}  // namespace player
