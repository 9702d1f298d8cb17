#include "zell/note_name.h"

#include <array>

namespace zell::midi {

std::string GetNoteName(unsigned int note) {
    static constexpr std::array kNames{"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    const int octave = static_cast<int>(note / 12) - 1;
    return kNames[note % 12] + std::to_string(octave);
}

}  // namespace zell::midi
