#include "midi/midi_scaler.h"

#include <algorithm>

namespace {

constexpr int kHighestValue = 127;

}  // namespace

void MidiScaler::SetScale(unsigned char scale) {
    scale_ = static_cast<std::uint16_t>(std::min<int>(scale, kHighestValue));
}

unsigned char MidiScaler::GetScaledMidiValue(unsigned char value) const {
    return static_cast<unsigned char>(std::min(value * scale_ / 100, kHighestValue));
}
