#include "player/song_source.h"

#include <algorithm>
#include <stdexcept>

namespace player {

void SongSource::Add(std::string key, ImportedSong song) {
    songs_.emplace_back(std::move(key), std::make_shared<const ImportedSong>(std::move(song)));
}

const std::string& SongSource::GetKey(std::size_t index) const {
    if (index >= songs_.size())
        throw std::out_of_range("no such song");
    return songs_[index].first;
}

std::shared_ptr<const ImportedSong> SongSource::GetSong(const std::string& key) const {
    const auto found =
        std::find_if(songs_.begin(), songs_.end(), [&](const auto& entry) { return entry.first == key; });
    if (found == songs_.end())
        throw std::out_of_range("no such song");
    return found->second;
}

}  // namespace player
