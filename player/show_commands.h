#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace player {

/// What the program does with show files besides playing them. Each says on standard
/// error what is wrong and returns the status of the program: 0 or 2.
///
/// Threads: one at a time.

/// Writes a show of these songs, in their order, each waiting for the operator. The
/// songs are named relative to the show file. Refused are songs that cannot be read
/// and, unless overwrite is given, a file that is there already.
int NewShow(const std::filesystem::path& path, const std::vector<std::string>& files, bool overwrite);

/// Prints every fault of a show and its songs at once, and for a good one, on standard
/// output, a line for each song with where it starts on the show's time axis. Warns of a
/// song that starts elsewhere than when the show was verified before.
int VerifyShow(const std::filesystem::path& path, bool allowOutside);

}  // namespace player
