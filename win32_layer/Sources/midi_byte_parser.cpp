#include "midi_byte_parser.h"

#include "message_bytes.h"

namespace win32_layer {

namespace {

constexpr std::uint8_t kSysExStart = 0xF0;
constexpr std::uint8_t kSysExEnd = 0xF7;
constexpr std::uint8_t kFirstSystem = 0xF0;
constexpr std::uint8_t kFirstRealTime = 0xF8;

}  // namespace

MidiByteParser::Kind MidiByteParser::Take(std::uint8_t byte) {
    if (byte >= kFirstRealTime) {
        message_ = {byte, 0, 0};
        return Kind::kShort;
    }
    return byte >= 0x80 ? TakeStatus(byte) : TakeData(byte);
}

MidiByteParser::Kind MidiByteParser::TakeStatus(std::uint8_t status) {
    const bool breaksOff = isInSysEx_ && status != kSysExEnd;
    if (isInSysEx_ && !breaksOff) {
        isInSysEx_ = false;
        return Kind::kSysExEnd;
    }
    isInSysEx_ = status == kSysExStart;
    needed_ = GetMessageBytes(status);
    status_ = needed_ > 1 ? status : 0;
    taken_ = 1;
    message_ = {};
    if (needed_ == 1)
        message_[0] = status;
    if (breaksOff)
        return Kind::kSysExBroken;
    if (isInSysEx_)
        return Kind::kSysExByte;
    return needed_ == 1 ? Kind::kShort : Kind::kNothing;
}

MidiByteParser::Kind MidiByteParser::TakeData(std::uint8_t data) {
    if (isInSysEx_)
        return Kind::kSysExByte;
    if (status_ == 0)
        return Kind::kNothing;
    if (++taken_ < needed_) {
        first_ = data;
        return Kind::kNothing;
    }
    message_ = needed_ == 2 ? std::array<std::uint8_t, 3>{status_, data, 0}
                            : std::array<std::uint8_t, 3>{status_, first_, data};
    taken_ = 1;
    if (status_ >= kFirstSystem)  // system common messages have no running status
        status_ = 0;
    return Kind::kShort;
}

}  // namespace win32_layer
