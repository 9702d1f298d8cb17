#pragma once

#include <string>
#include <vector>

#include "player/demo/demo_songs.h"

namespace player {

/// The main function of a program NAME FOLDER that writes songs into a folder: returns
/// its exit status, messages go to standard error.
int WriteSongs(const std::string& name, int count, char** arguments, const std::vector<DemoSong>& songs);

}  // namespace player
