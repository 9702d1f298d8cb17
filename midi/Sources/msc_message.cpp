#include "midi/msc_message.h"

#include <stdexcept>

namespace {

constexpr std::uint8_t kShowControl = 0x02;  // the sub-ID #1
constexpr std::uint8_t kEndOfField = 0x00;
constexpr std::uint8_t kEndOfExclusive = 0xF7;
constexpr std::size_t kHeaderSize = 4;

}  // namespace

MscMessage::MscMessage(const std::uint8_t* data, std::size_t size) {
    if (size < kHeaderSize)
        throw std::runtime_error("Insufficient bytes to be a valid MSC message");
    if (data[1] != kShowControl)
        throw std::runtime_error("The SysEx code is not for MSC");
    deviceId_ = data[0];
    format_ = static_cast<MscCommandFormat>(data[2]);
    if (format_ != MscCommandFormat::kMusic && format_ != MscCommandFormat::kAudioEffectsDevices)
        throw std::runtime_error("Invalid MSC command format type");
    command_ = static_cast<MscCommand>(data[3]);
    if (command_ != MscCommand::kGo)
        throw std::runtime_error("Invalid Msc command");
    cue_ = ReadMscCueNumber_(data + kHeaderSize, size - kHeaderSize);
}

MscMessage::MscMessage(const MscMessage&) = default;
MscMessage::MscMessage(MscMessage&&) noexcept = default;
MscMessage& MscMessage::operator=(const MscMessage&) = default;
MscMessage& MscMessage::operator=(MscMessage&&) noexcept = default;
MscMessage::~MscMessage() = default;

MscCueNumber MscMessage::ReadMscCueNumber_(const std::uint8_t* data, std::size_t size) {
    const std::uint8_t* position = data;
    const std::uint8_t* const end = data + size;
    MscCueNumber cue;
    cue.number = ReadMscCueValue_(position, size);
    // The end byte is within the data: a field without one is refused.
    if (*position != kEndOfField)
        return cue;
    ++position;
    cue.list = ReadMscCueValue_(position, static_cast<std::size_t>(end - position));
    if (*position != kEndOfField)
        return cue;
    ++position;
    cue.path = ReadMscCueValue_(position, static_cast<std::size_t>(end - position));
    return cue;
}

std::string MscMessage::ReadMscCueValue_(const std::uint8_t*& position, std::size_t size) {
    std::string value;
    for (; size > 0; --size, ++position) {
        if (*position == kEndOfField || *position == kEndOfExclusive)
            return value;
        value += static_cast<char>(*position);
    }
    throw std::runtime_error("MSC Message Cue Overflow");
}
