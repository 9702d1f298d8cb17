#include "midi/quarter_frame_message.h"

#include "midi/quarter_frame_index_error.h"

namespace {

constexpr unsigned char kQuarterFrameStatus = 0xF1;

unsigned char CreateDataByte(unsigned char index, int nibble) {
    if (index > 7)
        throw QuarterFrameIndexError("Index not supported by QuarterFrame.");
    return static_cast<unsigned char>(index << 4 | nibble);
}

}  // namespace

QuarterFrameMessage::QuarterFrameMessage(unsigned char index, unsigned char value)
    : bytes_{kQuarterFrameStatus, CreateDataByte(index, index % 2 == 1 ? value >> 4 : value & 0x0F)} {}

QuarterFrameMessage::QuarterFrameMessage(unsigned char index, unsigned char hours, FrameRate frameRate)
    : bytes_{kQuarterFrameStatus, CreateDataByte(index, static_cast<int>(frameRate) << 1 | hours >> 4)} {}

unsigned char QuarterFrameMessage::GetIndex() const {
    return static_cast<unsigned char>(bytes_[1] >> 4);
}

unsigned char QuarterFrameMessage::GetNibble() const {
    return static_cast<unsigned char>(GetIndex() % 2 == 1 ? bytes_[1] << 4 & 0xFF : bytes_[1] & 0x0F);
}
