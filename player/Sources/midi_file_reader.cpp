#include "player/midi_file_reader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "player/midi_file_error.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr std::size_t kLargestFile = std::size_t{64} << 20;
constexpr std::size_t kChunkHeader = 8;
constexpr std::string_view kFileStart = "MThd";

class Parser {
public:
    Parser(std::span<const std::uint8_t> bytes, const std::string& name) : bytes_(bytes), name_(name) {}

    MidiFile Parse() {
        MidiFile file;
        file.name = name_;
        const int declared = ParseHeader_(file);
        while (bytes_.size() - at_ >= kChunkHeader) {
            const bool isTrack = Type_(at_) == "MTrk";
            const std::size_t end = ChunkEnd_();
            if (isTrack)
                file.tracks.push_back(ParseTrack_(end));
            at_ = end;
        }
        // Padding behind the last track is common; before it, it is a file cut short.
        if (at_ < bytes_.size() && file.tracks.size() < static_cast<std::size_t>(declared))
            Refuse_(at_, "the file ends inside a chunk's header");
        if (file.tracks.empty())
            Refuse_(at_, "the file has no track");
        return file;
    }

private:
    [[noreturn]] void Refuse_(std::size_t offset, const std::string& reason) const {
        throw MidiFileError(name_, offset, reason);
    }

    std::string_view Type_(std::size_t offset) const {
        const std::size_t length = std::min<std::size_t>(4, bytes_.size() - offset);
        return {reinterpret_cast<const char*>(bytes_.data()) + offset, length};
    }

    std::uint32_t BigEndian_(int count) {
        std::uint32_t value = 0;
        for (; count > 0; --count)
            value = value << 8 | bytes_[at_++];
        return value;
    }

    /// Moves to the chunk's first byte.
    std::size_t ChunkEnd_() {
        const std::size_t start = at_;
        at_ += 4;
        const std::uint32_t length = BigEndian_(4);
        if (length > bytes_.size() - at_)
            Refuse_(start, zell::format("a chunk of %u bytes is longer than the file", length));
        return at_ + length;
    }

    /// The number of tracks that the file says it has.
    int ParseHeader_(MidiFile& file) {
        if (bytes_.empty())
            Refuse_(0, "the file is empty");
        if (Type_(0) != kFileStart)
            Refuse_(0, "not a standard MIDI file: it does not begin with MThd");
        if (bytes_.size() < kChunkHeader)
            Refuse_(bytes_.size(), "the file ends inside a chunk's header");
        const std::size_t end = ChunkEnd_();
        if (end - at_ < 6)
            Refuse_(4, zell::format("a header of %u bytes, 6 are needed", end - at_));
        file.format = static_cast<std::uint16_t>(BigEndian_(2));
        if (file.format == 2)
            Refuse_(8, "format 2 holds separate patterns and no song");
        if (file.format > 2)
            Refuse_(8, zell::format("unknown format %d", file.format));
        const int declared = static_cast<int>(BigEndian_(2));
        file.division = static_cast<std::uint16_t>(BigEndian_(2));
        at_ = end;
        return declared;
    }

    std::uint8_t Byte_(std::size_t end) {
        if (at_ >= end)
            Refuse_(end, "the track ends inside an event");
        return bytes_[at_++];
    }

    std::uint8_t DataByte_(std::size_t end) {
        const std::uint8_t byte = Byte_(end);
        if (byte > 127)
            Refuse_(at_ - 1, zell::format("0x%02X where a data byte is due", byte));
        return byte;
    }

    std::uint32_t VariableLength_(std::size_t end) {
        const std::size_t start = at_;
        std::uint32_t value = 0;
        for (int count = 0; count < 4; ++count) {
            const std::uint8_t byte = Byte_(end);
            value = value << 7 | (byte & 0x7F);
            if (byte < 0x80)
                return value;
        }
        Refuse_(start, "a number of more than four bytes");
    }

    std::string Payload_(std::size_t end) {
        const std::size_t start = at_;
        const std::uint32_t length = VariableLength_(end);
        if (length > end - at_)
            Refuse_(start, zell::format("an event of %u bytes is longer than its track", length));
        std::string payload(reinterpret_cast<const char*>(bytes_.data()) + at_, length);
        at_ += length;
        return payload;
    }

    MidiTrack ParseTrack_(std::size_t end) {
        MidiTrack track;
        std::uint32_t tick = 0;
        std::uint8_t running = 0;
        while (at_ < end) {
            const std::size_t start = at_;
            const std::uint32_t delta = VariableLength_(end);
            if (delta > std::numeric_limits<std::uint32_t>::max() - tick)
                Refuse_(start, "the song is too long for 32-bit ticks");
            tick += delta;
            const std::uint8_t status = Byte_(end);
            if (status == 0xFF) {
                const std::uint8_t type = Byte_(end);
                std::string payload = Payload_(end);
                if (type == 0x2F) {
                    track.EndAt(tick, start);
                    return track;
                }
                track.AddMeta(tick, type, std::move(payload), start);
            } else if (status == 0xF0 || status == 0xF7) {
                track.AddSysEx(tick, status, Payload_(end), start);
            } else if (status > 0xEF) {
                Refuse_(at_ - 1, zell::format("status 0x%02X does not belong in a file", status));
            } else {
                // Neither a meta event nor system exclusive ends running status here:
                // the standard says that they do, and files rely on the contrary.
                if (status >= 0x80)
                    running = status;
                else if (running == 0)
                    Refuse_(at_ - 1, "a data byte without a status before it");
                else
                    --at_;
                const std::uint8_t data1 = DataByte_(end);
                const bool twoBytes = (running & 0xE0) == 0xC0;  // program change, channel pressure
                track.AddMessage(tick, running, data1, twoBytes ? 0 : DataByte_(end), start);
            }
        }
        return track;
    }

    std::span<const std::uint8_t> bytes_;
    const std::string& name_;
    std::size_t at_ = 0;
};

}  // namespace

MidiFile ParseMidiFile(std::span<const std::uint8_t> bytes, const std::string& name) {
    return Parser(bytes, name).Parse();
}

MidiFile ReadMidiFile(const std::filesystem::path& path) {
    const std::string name = path.string();
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        throw MidiFileError(name, 0, "it is a folder");
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        throw MidiFileError(name, 0, "cannot be opened: " + std::generic_category().message(errno));

    std::vector<std::uint8_t> bytes;
    std::array<char, 65536> piece;
    do {
        stream.read(piece.data(), piece.size());
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + stream.gcount());
        // The first bytes tell what is no MIDI file before all of it, which may be
        // an endless device, is in memory.
        if (bytes.size() >= kFileStart.size() && !std::equal(kFileStart.begin(), kFileStart.end(), bytes.begin()))
            break;
        if (bytes.size() > kLargestFile)
            throw MidiFileError(name, kLargestFile, "the file is larger than 64 MiB");
    } while (stream);
    if (stream.bad())
        throw MidiFileError(name, bytes.size(), "cannot be read: " + std::generic_category().message(errno));
    return ParseMidiFile(bytes, name);
}

}  // namespace player
