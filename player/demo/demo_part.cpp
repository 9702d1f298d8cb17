#include "player/demo/demo_part.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace player {

DemoPart::DemoPart(int channel, std::string name, int volume, int pan) : channel_(channel), name_(std::move(name)) {
    Controller(0, 7, volume);
    Controller(0, 10, pan);
}

void DemoPart::Program(double at, int program) {
    Add_(at, 1, 0xC0, program, 0);
}

void DemoPart::Controller(double at, int number, int value) {
    Add_(at, 1, 0xB0, number, value);
}

void DemoPart::Bend(double at, double value) {
    const int bend = value >= 1 ? 0x3FFF : static_cast<int>(std::lround(0x2000 * (1 + value)));
    Add_(at, 1, 0xE0, bend & 0x7F, bend >> 7);
}

void DemoPart::Note(double at, double length, int note, int velocity) {
    Add_(at, 2, 0x90, note, velocity);
    Add_(at + length, 0, 0x80, note, 64);
}

void DemoPart::Phrase(double at, std::string_view phrase, int velocity) {
    std::istringstream words{std::string(phrase)};
    std::string name, length;
    while (words >> name) {
        if (!(words >> length))
            throw std::invalid_argument("a note without a length: " + std::string(phrase));
        const double quarters = std::strtod(length.c_str(), nullptr);
        if (name != "-")
            Note(at, quarters * 0.92, NoteNumber(name), velocity);  // a breath between two notes
        at += quarters;
    }
}

void DemoPart::Chord(double at, double length, std::string_view notes, int velocity) {
    std::istringstream words{std::string(notes)};
    for (std::string name; words >> name;)
        Note(at, length, NoteNumber(name), velocity);
}

int DemoPart::NoteNumber(std::string_view name) {
    static constexpr std::string_view kLetters = "C D EF G A B";
    const std::size_t letter = name.empty() || name[0] == ' ' ? std::string_view::npos : kLetters.find(name[0]);
    const bool sharp = name.size() > 2 && name[1] == '#';
    const bool flat = name.size() > 2 && name[1] == 'b';
    const std::size_t octaveAt = sharp || flat ? 2 : 1;
    if (letter == std::string_view::npos || name.size() != octaveAt + 1 || name[octaveAt] < '0' || name[octaveAt] > '8')
        throw std::invalid_argument("no note: " + std::string(name));
    return 12 * (name[octaveAt] - '0' + 1) + static_cast<int>(letter) + (sharp ? 1 : 0) - (flat ? 1 : 0);
}

void DemoPart::Add_(double at, int rank, int kind, int data1, int data2) {
    events_.push_back({at, rank, static_cast<std::uint8_t>(kind | channel_), static_cast<std::uint8_t>(data1),
                       static_cast<std::uint8_t>(data2)});
}

}  // namespace player
