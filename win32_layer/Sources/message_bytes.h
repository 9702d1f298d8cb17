#pragma once

#include <cstddef>
#include <cstdint>

namespace win32_layer {

/// MIDI 1.0: the bytes of a message by its status; 0 for what is no short message
/// (data without status, system exclusive, undefined).
std::size_t GetMessageBytes(std::uint8_t status);

}  // namespace win32_layer
