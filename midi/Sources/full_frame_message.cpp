#include "midi/full_frame_message.h"

// System exclusive, real time, to all devices: time code, full frame.
FullFrameMessage::FullFrameMessage(unsigned char hours, unsigned char minutes, unsigned char seconds,
                                   unsigned char frames, FrameRate frameRate)
    : bytes_{0xF0,    0x7F,    0x7F,   0x01, 0x01, static_cast<unsigned char>(hours | static_cast<int>(frameRate) << 5),
             minutes, seconds, frames, 0xF7} {}

unsigned char FullFrameMessage::GetHours() const {
    return bytes_[5] & 0x1F;
}

FrameRate FullFrameMessage::GetFrameRate() const {
    return static_cast<FrameRate>(bytes_[5] >> 5 & 0x03);
}
