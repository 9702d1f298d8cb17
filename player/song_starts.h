#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace player {

/// Where a show's songs began on its time axis when it was last verified: lights and film
/// are programmed by it, and everything moves when one song becomes longer.
///
/// Owner: whoever verifies; values.
/// Units: seconds from the beginning of the show, by song key.
using SongStarts = std::map<std::string, double>;

/// Nothing where none were stored, or what is there is no such file.
std::optional<SongStarts> ReadSongStarts(const std::filesystem::path& showFile);
/// Beside the show file. zell::IoError where it cannot be written.
void WriteSongStarts(const std::filesystem::path& showFile, const SongStarts& starts);

}  // namespace player
