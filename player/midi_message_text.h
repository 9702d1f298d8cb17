#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace player {

/// A MIDI message in words, as "note on  C4 (60)  velocity 90  channel 1". Channels and
/// programs are counted from 1; middle C, note 60, is C4.
///
/// bytes: one whole message with its status byte; system exclusive up to 64 bytes is
/// spelt out, and show control is decoded.
std::string DescribeMidiMessage(const std::uint8_t* bytes, std::size_t count);

}  // namespace player
