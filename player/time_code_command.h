#pragma once

#include <string>

namespace player {

/// Follows the time code of a recording, a file, or else of a MIDI input, by name or
/// index, until it is interrupted, as a receiver does: prints on standard output every second of its time, each place
/// that it is sent to, every jump and every gap, and at the end how regular its pieces were. Returns the status of the
/// program: 0; 1 where there is no time code; 2 for what cannot be read, said on standard error.
int FollowTimeCode(const std::string& source);

}  // namespace player
