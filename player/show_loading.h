#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "player/show.h"

namespace player {

/// Reads the songs that a document names. A song that is missing, broken or does
/// not fit what the document says of it (a place beyond its end, a track that it
/// lacks) becomes a song with a fault, and the show loads.
///
/// file: the show file, from whose folder the songs are found. allowOutside: whether
/// they may lie elsewhere than below that folder. A show that obeys show control is
/// refused where a cue could mean two places: ShowFileError, a line each.
///
/// Threads: any; may take long.
std::shared_ptr<const Show> LoadShow(ShowDocument document, const std::filesystem::path& file, bool allowOutside);

/// A show of these files, one song each, played one after another at once. A file
/// that cannot be read ends it: std::invalid_argument or MidiFileError with one line.
std::shared_ptr<const Show> ShowOfFiles(const std::vector<std::string>& files);

}  // namespace player
