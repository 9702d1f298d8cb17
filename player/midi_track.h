#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace player {

/// One track of a standard MIDI file: its events in the file's order and where it
/// ends. The end-of-track event is that end and not among the events.
///
/// Owner:   a MidiFile; a value.
/// Threads: one at a time.
/// Units:   ticks of the file's division since the start of the track; offsets are
///          bytes from the start of the file read, for messages, 0 where the event
///          was made here.
/// Errors:  std::invalid_argument, and nothing added, for an event earlier than the
///          one before it or a status of another kind.
class MidiTrack {
public:
    /// 16 bytes, because a file may hold one in every two of its bytes.
    struct Event {
        std::uint32_t tick;
        std::uint32_t offset;
        std::uint32_t payload;  // index of the text or data of a meta or system exclusive event
        std::uint8_t status;    // 0x80..0xEF; 0xF0 and 0xF7 system exclusive; 0xFF meta
        std::uint8_t data1;     // of a meta event: its type
        std::uint8_t data2;     // 0 for the messages of two bytes
    };

    /// data2 of a program change or channel pressure is 0.
    void AddMessage(std::uint32_t tick, std::uint8_t status, std::uint8_t data1, std::uint8_t data2,
                    std::size_t offset = 0);
    /// Any type but 0x2F, the end.
    void AddMeta(std::uint32_t tick, std::uint8_t type, std::string payload, std::size_t offset = 0);
    /// status 0xF0, or 0xF7 for a continuation or an escape; payload as in the file.
    void AddSysEx(std::uint32_t tick, std::uint8_t status, std::string payload, std::size_t offset = 0);
    /// Later events move the end with them.
    void EndAt(std::uint32_t tick, std::size_t offset = 0);

    const std::vector<Event>& Events() const { return events_; }
    /// Of a meta or system exclusive event of this track.
    const std::string& Payload(const Event& event) const { return payloads_.at(event.payload); }
    std::uint32_t EndTick() const { return endTick_; }
    std::size_t EndOffset() const { return endOffset_; }

private:
    void Add_(std::uint32_t tick, std::uint8_t status, std::uint8_t data1, std::uint8_t data2, std::size_t offset);

    std::vector<Event> events_;
    std::vector<std::string> payloads_;
    std::uint32_t endTick_ = 0;
    std::size_t endOffset_ = 0;
};

}  // namespace player
