#include "player/midi_file_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "player/midi_file_error.h"
#include "tests/player/temporary_folder.h"

namespace {

using namespace std::string_literals;

const std::string kHeader = "MThd\0\0\0\6\0\0\0\1\0\x60"s;  // format 0, one track, 96 ticks
const std::string kEnd = "\0\xFF\x2F\0"s;

std::string Chunk(const std::string& type, const std::string& body) {
    std::string chunk = type;
    for (int shift = 24; shift >= 0; shift -= 8)
        chunk += static_cast<char>(body.size() >> shift);
    return chunk + body;
}

player::MidiFile Parse(const std::string& bytes) {
    return player::ParseMidiFile({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, "song.mid");
}

/// "tick:status data1 data2" or "tick:status type 'payload'", events apart by commas,
/// each track ended by "end tick;".
std::string Dump(const player::MidiFile& file) {
    std::ostringstream text;
    text << std::hex;
    for (const player::MidiTrack& track : file.tracks) {
        for (const player::MidiTrack::Event& event : track.Events()) {
            text << std::dec << event.tick << ':' << std::hex << int{event.status};
            if (event.status < 0xF0)
                text << ' ' << int{event.data1} << ' ' << int{event.data2} << ", ";
            else
                text << ' ' << int{event.data1} << " '" << track.Payload(event) << "', ";
        }
        text << std::dec << "end " << track.EndTick() << ';';
    }
    return text.str();
}

std::string Outcome(const std::string& bytes) {
    try {
        return Dump(Parse(bytes));
    } catch (const player::MidiFileError& refusal) {
        return refusal.what();
    }
}

TEST(MidiFileReader, AcceptsWhatRealFilesHold) {
    const struct {
        std::string what, bytes, expected;
    } cases[] = {
        {"every kind of message",
         kHeader + Chunk("MTrk",
                         "\0\x91\x3C\x40\x60\xA1\x3C\x10\0\xB1\x07\x64\0\xC1\x05\0\xD1\x20\0\xE1\0\x40\x81\x48"
                         "\x81\x3C\x7F"s +
                             kEnd),
         "0:91 3c 40, 96:a1 3c 10, 96:b1 7 64, 96:c1 5 0, 96:d1 20 0, 96:e1 0 40, 296:81 3c 7f, end 296;"},
        {"running status", kHeader + Chunk("MTrk", "\0\x90\x3C\x40\1\x3E\x40\1\xC0\5\1\6"s + kEnd),
         "0:90 3c 40, 1:90 3e 40, 2:c0 5 0, 3:c0 6 0, end 3;"},
        {"running status across meta events and system exclusive",
         kHeader + Chunk("MTrk", "\0\x90\x3C\x40\1\xFF\1\2la\1\x3E\x40\1\xF0\2\x7E\xF7\1\x40\x40"s + kEnd),
         "0:90 3c 40, 1:ff 1 'la', 2:90 3e 40, 3:f0 0 '\x7E\xF7', 4:90 40 40, end 4;"},
        {"the longest number and an escape", kHeader + Chunk("MTrk", "\xFF\xFF\xFF\x7F\xF7\1\xF3"s + kEnd),
         "268435455:f7 0 '\xF3', end 268435455;"},
        {"a whole track without its end event", kHeader + Chunk("MTrk", "\x0A\x90\x3C\x40"), "10:90 3c 40, end 10;"},
        {"what stands behind the end event", kHeader + Chunk("MTrk", kEnd + "\0\x90\x3C"s), "end 0;"},
        {"an unknown chunk, a longer header, more tracks than declared",
         "MThd\0\0\0\7\0\1\0\1\0\x60!"s + Chunk("XFIH", "MTrk") + Chunk("MTrk", kEnd) +
             Chunk("MTrk", "\5"s + kEnd.substr(1)),
         "end 0;end 5;"},
        {"fewer tracks than declared", "MThd\0\0\0\6\0\1\0\x09\0\x60"s + Chunk("MTrk", kEnd), "end 0;"},
        {"padding", kHeader + Chunk("MTrk", kEnd) + "\0\0\0\0\0\0\0"s, "end 0;"},
    };
    for (const auto& [what, bytes, expected] : cases)
        EXPECT_EQ(Outcome(bytes), expected) << what;
}

TEST(MidiFileReader, RefusesTheRestInOneLineWithThePlaceAndTheReason) {
    const struct {
        std::string bytes, reason;
    } cases[] = {
        {"", "byte 0: the file is empty"},
        {"MT", "byte 0: not a standard MIDI file: it does not begin with MThd"},
        {"RIFF\0\0\0\0"s, "byte 0: not a standard MIDI file: it does not begin with MThd"},
        {"MThd\0\0"s, "byte 6: the file ends inside a chunk's header"},
        {"MThd\0\0\0\6\0\0\0\1\0"s, "byte 0: a chunk of 6 bytes is longer than the file"},
        {"MThd\0\0\0\5\0\0\0\1\0"s, "byte 4: a header of 5 bytes, 6 are needed"},
        {"MThd\0\0\0\6\0\2\0\1\0\x60"s + Chunk("MTrk", kEnd), "byte 8: format 2 holds separate patterns and no song"},
        {"MThd\0\0\0\6\0\3\0\1\0\x60"s + Chunk("MTrk", kEnd), "byte 8: unknown format 3"},
        {kHeader, "byte 14: the file has no track"},
        {kHeader + Chunk("XFIH", ""), "byte 22: the file has no track"},
        {kHeader + "MTrk\0\0"s, "byte 14: the file ends inside a chunk's header"},
        {kHeader + "MTrk\0\0\0\5"s + kEnd, "byte 14: a chunk of 5 bytes is longer than the file"},
        {kHeader + "MTrk\xFF\xFF\xFF\xFF"s, "byte 14: a chunk of 4294967295 bytes is longer than the file"},
        {kHeader + Chunk("MTrk", kEnd) + "junk\x7F\0\0\0"s,
         "byte 26: a chunk of 2130706432 bytes is longer than the file"},
        {kHeader + Chunk("MTrk", "\0\x90\x3C"s), "byte 25: the track ends inside an event"},
        {kHeader + Chunk("MTrk", "\x81"s), "byte 23: the track ends inside an event"},
        {kHeader + Chunk("MTrk", "\0\x90\x3C\x90"s + kEnd), "byte 25: 0x90 where a data byte is due"},
        {kHeader + Chunk("MTrk", "\0\x3C\x40"s), "byte 23: a data byte without a status before it"},
        {"MThd\0\0\0\6\0\1\0\2\0\x60"s + Chunk("MTrk", "\0\x90\x3C\x40"s + kEnd) + Chunk("MTrk", "\0\x3C\x40"s),
         "byte 39: a data byte without a status before it"},
        {kHeader + Chunk("MTrk", "\0\xF8"s), "byte 23: status 0xF8 does not belong in a file"},
        {kHeader + Chunk("MTrk", "\x80\x80\x80\x80\0"s), "byte 22: a number of more than four bytes"},
        {kHeader + Chunk("MTrk", "\0\xFF\1\3la"s), "byte 25: an event of 3 bytes is longer than its track"},
        {kHeader + Chunk("MTrk", "\0\xF0\xFF\xFF\xFF\x7F"s),
         "byte 24: an event of 268435455 bytes is longer than its track"},
    };
    for (const auto& [bytes, reason] : cases)
        EXPECT_EQ(Outcome(bytes), "song.mid: " + reason) << ::testing::PrintToString(bytes);
}

TEST(MidiFileReader, RefusesMoreTicksThanThirtyTwoBitsHold) {
    std::string waits;
    for (int count = 0; count < 16; ++count)
        waits += "\xFF\xFF\xFF\x7F\x90\x3C\x40"s;
    EXPECT_EQ(Outcome(kHeader + Chunk("MTrk", waits + "\x0F\x90\x3C\x40"s)).substr(0, 20), "268435455:90 3c 40, ");
    EXPECT_EQ(Outcome(kHeader + Chunk("MTrk", waits + "\x10\x90\x3C\x40"s)),
              "song.mid: byte 134: the song is too long for 32-bit ticks");
}

TEST(MidiFileReader, NamesAFileThatItCannotRead) {
    const TemporaryFolder own;
    const std::filesystem::path& folder = own.GetPath();
    const auto outcome = [](const std::filesystem::path& path) {
        try {
            return Dump(player::ReadMidiFile(path));
        } catch (const player::MidiFileError& refusal) {
            return std::string(refusal.what());
        }
    };
    EXPECT_EQ(outcome(folder), folder.string() + ": byte 0: it is a folder");
    EXPECT_EQ(outcome(folder / "none.mid"),
              (folder / "none.mid").string() + ": byte 0: cannot be opened: No such file or directory");
    EXPECT_EQ(outcome("/dev/zero"), "/dev/zero: byte 0: not a standard MIDI file: it does not begin with MThd");
    const std::filesystem::path odd = own.Put("two\nlines.mid", "x");
    EXPECT_EQ(outcome(odd),
              (folder / "two lines.mid").string() + ": byte 0: not a standard MIDI file: it does not begin with MThd");
    own.Put("two\nlines.mid", kHeader + Chunk("MTrk", kEnd));
    EXPECT_EQ(outcome(odd), "end 0;");
}

}  // namespace
