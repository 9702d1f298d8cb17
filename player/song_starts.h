#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "midi/frame_rate.h"
#include "player/show.h"

namespace player {

/// Where a show's songs began on its time axis when it was last verified: lights and film
/// are programmed by it, and everything moves when one song becomes longer.
///
/// Owner: whoever verifies; values.
/// Units: seconds from the beginning of the show, by song key.
using SongStarts = std::map<std::string, double>;

/// Of the songs that can be played.
SongStarts StartsOf(const Show& show);
/// The label of a place on the show's axis, as it is sent.
std::string LabelOf(double seconds, FrameRate rate);
/// A line for each song that starts elsewhere than when the show was last verified.
std::vector<std::string> DescribeMovedSongs(const Show& show, FrameRate rate);
/// Nothing where none were stored, or what is there is no such file.
std::optional<SongStarts> ReadSongStarts(const std::filesystem::path& showFile);
/// Beside the show file. zell::IoError where it cannot be written.
void WriteSongStarts(const std::filesystem::path& showFile, const SongStarts& starts);

}  // namespace player
