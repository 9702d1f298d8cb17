#include "player/midi_file_writer.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace player {

namespace {

using ByteVector = std::vector<std::uint8_t>;

void Append(ByteVector& bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void AppendBigEndian(ByteVector& bytes, std::uint32_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
}

void AppendVariableLength(ByteVector& bytes, std::uint32_t value) {
    if (value >= 1u << 28)
        throw std::invalid_argument("a MIDI file cannot hold the number " + std::to_string(value));
    for (int shift = 21; shift > 0; shift -= 7)
        if (value >> shift != 0)
            bytes.push_back(static_cast<std::uint8_t>(0x80 | (value >> shift & 0x7F)));
    bytes.push_back(static_cast<std::uint8_t>(value & 0x7F));
}

void AppendPayload(ByteVector& bytes, const std::string& payload) {
    AppendVariableLength(bytes, static_cast<std::uint32_t>(payload.size()));
    Append(bytes, payload);
}

}  // namespace

void MidiFileWriter::AppendTrack_(std::vector<std::uint8_t>& bytes, const MidiTrack& track) const {
    Append(bytes, "MTrk");
    const std::size_t lengthAt = bytes.size();
    AppendBigEndian(bytes, 0, 4);
    std::uint32_t tick = 0;
    std::uint8_t running = 0;
    for (const MidiTrack::Event& event : track.Events()) {
        AppendVariableLength(bytes, event.tick - tick);
        tick = event.tick;
        if (event.status < 0xF0) {
            if (event.status != running || runningStatus_ == RunningStatus::kNever)
                bytes.push_back(event.status);
            running = event.status;
            bytes.push_back(event.data1);
            if ((event.status & 0xE0) != 0xC0)
                bytes.push_back(event.data2);
        } else {
            running = 0;
            bytes.push_back(event.status);
            if (event.status == 0xFF)
                bytes.push_back(event.data1);
            AppendPayload(bytes, track.Payload(event));
        }
    }
    AppendVariableLength(bytes, track.EndTick() - tick);
    Append(bytes, std::string_view("\xFF\x2F\x00", 3));

    const std::size_t length = bytes.size() - lengthAt - 4;
    if (length > 0xFFFFFFFF)
        throw std::invalid_argument("a track of more than 4 GiB");
    for (std::size_t index = 0; index < 4; ++index)
        bytes[lengthAt + index] = static_cast<std::uint8_t>(length >> (24 - 8 * index));
}

std::vector<std::uint8_t> MidiFileWriter::Bytes(const MidiFile& file) const {
    if (file.format > 1)
        throw std::invalid_argument("format " + std::to_string(file.format) + " is not written, only 0 and 1");
    if (file.tracks.size() > 0xFFFF || (file.format == 0 && file.tracks.size() != 1))
        throw std::invalid_argument(std::to_string(file.tracks.size()) + " tracks do not fit a file of format " +
                                    std::to_string(file.format));
    std::vector<std::uint8_t> bytes;
    Append(bytes, "MThd");
    AppendBigEndian(bytes, 6, 4);
    AppendBigEndian(bytes, file.format, 2);
    AppendBigEndian(bytes, static_cast<std::uint32_t>(file.tracks.size()), 2);
    AppendBigEndian(bytes, file.division, 2);
    for (const MidiTrack& track : file.tracks)
        AppendTrack_(bytes, track);
    return bytes;
}

}  // namespace player
