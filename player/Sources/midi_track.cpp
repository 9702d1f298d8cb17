#include "player/midi_track.h"

#include <stdexcept>
#include <utility>

namespace player {

void MidiTrack::Add_(std::uint32_t tick, std::uint8_t status, std::uint8_t data1, std::uint8_t data2,
                     std::size_t offset) {
    if (tick < endTick_)
        throw std::invalid_argument("an event at tick " + std::to_string(tick) + " after tick " +
                                    std::to_string(endTick_));
    events_.push_back(
        {tick, static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(payloads_.size()), status, data1, data2});
    endTick_ = tick;
    endOffset_ = offset;
}

void MidiTrack::AddMessage(std::uint32_t tick, std::uint8_t status, std::uint8_t data1, std::uint8_t data2,
                           std::size_t offset) {
    if (status < 0x80 || status > 0xEF || data1 > 127 || data2 > 127)
        throw std::invalid_argument("not a channel message");
    Add_(tick, status, data1, data2, offset);
}

void MidiTrack::AddMeta(std::uint32_t tick, std::uint8_t type, std::string payload, std::size_t offset) {
    if (type == 0x2F)
        throw std::invalid_argument("a track ends by EndAt");
    Add_(tick, 0xFF, type, 0, offset);
    payloads_.push_back(std::move(payload));
}

void MidiTrack::AddSysEx(std::uint32_t tick, std::uint8_t status, std::string payload, std::size_t offset) {
    if (status != 0xF0 && status != 0xF7)
        throw std::invalid_argument("not a system exclusive message");
    Add_(tick, status, 0, 0, offset);
    payloads_.push_back(std::move(payload));
}

void MidiTrack::EndAt(std::uint32_t tick, std::size_t offset) {
    if (tick < endTick_)
        throw std::invalid_argument("an end at tick " + std::to_string(tick) + " after tick " +
                                    std::to_string(endTick_));
    endTick_ = tick;
    endOffset_ = offset;
}

}  // namespace player
