#include "player/midi_file_error.h"

#include "player/display_text.h"

namespace player {

// A file's name may hold a line feed, and the line that names it must stay one.
MidiFileError::MidiFileError(const std::string& fileName, std::size_t offset, const std::string& reason)
    : std::runtime_error(DisplayText(fileName) + ": byte " + std::to_string(offset) + ": " + reason) {}

}  // namespace player
