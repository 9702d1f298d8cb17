#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "player/imported_song.h"
#include "player/show_document.h"
#include "vemo_core/ambrel_show_data.h"

namespace player {

/// One song of a show, ready to be played, or the reason why it is not.
struct ShowSong {
    std::string key;
    std::string title;
    int number = 1;
    std::shared_ptr<const ImportedSong> song;  // null where it is missing or broken
    std::string fault;                         // one line; empty where there is a song
    std::vector<std::string> faults;           // all of them, a line each, by JSON pointer where a show file names it
    // What the engine does not know of.
    std::vector<std::uint32_t> pauses;  // ticks, ascending
    std::vector<ShowDocument::Patch> patches;
    std::optional<ShowDocument::ClickTrack> clickTrack;
    int countInBars = 0;
};

/// A show with its songs read: what the transport plays from.
///
/// Owner:   shared by everything that plays or shows it; immutable, so that any
///          thread may read.
/// Units:   songs are counted from 0 here; track ids are channels 0..15 of port 0.
class Show {
public:
    /// Where the document came from; empty for one that was never written.
    Show(ShowDocument document, std::filesystem::path file, std::vector<ShowSong> songs);
    Show(const Show&) = delete;
    Show& operator=(const Show&) = delete;

    const ShowDocument& GetDocument() const { return document_; }
    const std::filesystem::path& GetFile() const { return file_; }
    const std::vector<ShowSong>& GetSongs() const { return songs_; }
    /// std::out_of_range "no such song" for a key that is not there.
    std::size_t IndexOf(const std::string& key) const;
    /// Where a cue of show control starts: the song of exactly that number, else, after
    /// the last point, that song's marker of that number, counted from 1. Song, and tick
    /// of the marker. std::invalid_argument with one line where there is none.
    std::pair<std::size_t, std::optional<std::uint32_t>> FindCue(const std::string& cue) const;
    /// The songs that can be played, in the show's order, and the groups.
    const ambrel::AmbrelShowData& GetData() const { return data_; }

private:
    const ShowDocument document_;
    const std::filesystem::path file_;
    const std::vector<ShowSong> songs_;
    ambrel::AmbrelShowData data_;
};

}  // namespace player
