#pragma once

#include <string>
#include <string_view>

namespace player {

/// Text of unknown origin as one line of valid UTF-8 that a terminal and a JSON
/// reader can bear: text that is not UTF-8 is read as Latin-1, as older
/// sequencers wrote it; control characters become spaces; spaces at both ends go.
///
/// Threads: any.
std::string DisplayText(std::string_view text);

}  // namespace player
