#include "player/show.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

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

}  // namespace player
