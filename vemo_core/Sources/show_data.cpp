#include "vemo_core/show_data.h"

#include <algorithm>
#include <stdexcept>

namespace vemo_midi {

void ShowData::Add(const std::string& key, SongData song) {
    if (contains(key))
        throw std::invalid_argument("the show has a song \"" + key + "\" already");
    songs_.emplace_back(key, std::move(song));
}

const SongData& ShowData::at(const std::string& key) const {
    const auto found = Find(key);
    if (found == songs_.end())
        throw std::out_of_range("the show has no song \"" + key + "\"");
    return found->second;
}

bool ShowData::contains(const std::string& key) const {
    return Find(key) != songs_.end();
}

ShowData::const_iterator ShowData::Find(const std::string& key) const {
    return std::ranges::find(songs_, key, &Song::first);
}

}  // namespace vemo_midi
