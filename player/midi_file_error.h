#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace player {

/// A file that cannot be played as a song. what() is one line that names the
/// file, the byte where the reader gave up and the reason:
/// "song.mid: byte 22: a chunk of 400 bytes is longer than the file".
class MidiFileError : public std::runtime_error {
public:
    MidiFileError(const std::string& fileName, std::size_t offset, const std::string& reason);
};

}  // namespace player
