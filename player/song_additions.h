#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace player {

/// What a show says of a song beyond its file.
///
/// Owner: whoever imports the song; a value.
/// Units: ticks of the song as imported; channels, notes and programs from 0. What
///        lies between two ticks covers the first and not the second.
struct SongAdditions {
    template <class Value>
    struct Span {
        std::uint32_t from = 0, to = 0;
        Value value{};
    };
    struct Track {
        std::optional<std::string> name;
        std::optional<std::uint8_t> program;  // in the place of the default and of the first program change
        std::optional<std::pair<std::uint8_t, std::uint8_t>> range;  // 0, 127 unless given
    };

    std::optional<std::string> title;
    std::optional<std::uint32_t> start;
    std::vector<Span<double>> tempoScales;
    std::vector<Span<int>> transpositions;
    std::vector<Span<int>> clicks;                 // in thirty-second notes
    std::map<std::uint32_t, std::string> markers;  // in the place of the file's at the same tick
    std::map<std::uint32_t, unsigned int> pages;
    std::map<int, Track> tracks;  // by channel; those that the song lacks are left out
};

}  // namespace player
