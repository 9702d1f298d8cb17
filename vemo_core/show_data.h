#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "vemo_core/song_data.h"
#include "vemo_core/vemo_core_export.h"

namespace vemo_midi {

/// The songs of a show by key, in show order: the order in which they were added.
///
/// Errors: std::invalid_argument from Add() for a key that is there already;
///         std::out_of_range from at().
class VEMO_CORE_EXPORT ShowData {
public:
    using Song = std::pair<std::string, SongData>;
    using const_iterator = std::vector<Song>::const_iterator;

    void Add(const std::string& key, SongData song);

    const SongData& at(const std::string& key) const;
    bool contains(const std::string& key) const;
    const_iterator begin() const { return songs_.begin(); }
    const_iterator end() const { return songs_.end(); }
    std::size_t size() const { return songs_.size(); }
    bool empty() const { return songs_.empty(); }

private:
    const_iterator Find(const std::string& key) const;

    std::vector<Song> songs_;
};

}  // namespace vemo_midi
