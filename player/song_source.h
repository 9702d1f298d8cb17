#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "player/imported_song.h"

namespace player {

/// The songs of a run in playing order, each with the key that the host asks for.
///
/// Owner:   the program; immutable once playing starts, so that any thread may read.
/// Errors:  std::out_of_range "no such song" for a key or place that is not there.
class SongSource {
public:
    void Add(std::string key, ImportedSong song);

    std::size_t GetCount() const { return songs_.size(); }
    /// index from 0.
    const std::string& GetKey(std::size_t index) const;
    std::shared_ptr<const ImportedSong> GetSong(const std::string& key) const;

private:
    std::vector<std::pair<std::string, std::shared_ptr<const ImportedSong>>> songs_;
};

}  // namespace player
