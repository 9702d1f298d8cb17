#include "player/show.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "player/display_text.h"

namespace player {

Show::Show(ShowDocument document, std::filesystem::path file, std::vector<ShowSong> songs)
    : document_(std::move(document)), file_(std::move(file)), songs_(std::move(songs)) {
    for (const ShowSong& song : songs_)
        if (song.song)
            data_.Add(song.key, song.song->song);
    for (const ShowDocument::Group& group : document_.groups) {
        std::set<unsigned short> trackIds;
        for (const int channel : group.channels)
            trackIds.insert(static_cast<unsigned short>(channel - 1));
        data_.AddGroup(static_cast<unsigned char>(group.number), std::move(trackIds));
    }
}

std::size_t Show::IndexOf(const std::string& key) const {
    const auto found = std::ranges::find(songs_, key, &ShowSong::key);
    if (found == songs_.end())
        throw std::out_of_range("no such song");
    return static_cast<std::size_t>(found - songs_.begin());
}

std::pair<std::size_t, std::optional<std::uint32_t>> Show::FindCue(const std::string& cue) const {
    const auto songOf = [this](std::string_view number) {
        return std::ranges::find_if(songs_,
                                    [&](const ShowSong& song) { return std::to_string(song.number) == number; });
    };
    const std::string_view text = cue;
    auto song = songOf(text);
    if (song != songs_.end())
        return {static_cast<std::size_t>(song - songs_.begin()), std::nullopt};
    if (const auto point = text.rfind('.'); point != std::string_view::npos) {
        song = songOf(text.substr(0, point));
        std::size_t marker = 0;
        const std::string_view number = text.substr(point + 1);
        const auto parsed = std::from_chars(number.data(), number.data() + number.size(), marker);
        if (song != songs_.end() && song->song && parsed.ec == std::errc() && std::to_string(marker) == number)
            for (const CL::Marker& candidate : song->song->log.GetMarkers())
                if (marker-- == 1)
                    return {static_cast<std::size_t>(song - songs_.begin()), candidate.abs_time()};
    }
    throw std::invalid_argument("no song or marker has the cue number '" + DisplayText(cue) + "'");
}

}  // namespace player
