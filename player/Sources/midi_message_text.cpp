#include "player/midi_message_text.h"

#include <array>
#include <exception>

#include "midi/msc_message.h"
#include "player/display_text.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr std::size_t kMostSpelt = 64;

std::string NoteName(int note) {
    constexpr std::array<const char*, 12> kNames = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    return zell::format("%s%d (%d)", kNames[static_cast<std::size_t>(note % 12)], note / 12 - 1, note);
}

std::string Hex(const std::uint8_t* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += zell::format(i == 0 ? "%02X" : " %02X", bytes[i]);
    return text;
}

std::string ShowControlText(const std::uint8_t* bytes, std::size_t count) {
    try {
        const MscMessage message(bytes + 2, count - 2);
        const MscCueNumber cue = message.EventId();
        return zell::format("show control  GO '%s'  list '%s'  path '%s'  device %d  format %02X",
                            DisplayText(cue.number), DisplayText(cue.list), DisplayText(cue.path), message.DeviceId(),
                            static_cast<unsigned int>(message.Format()));
    } catch (const std::exception& error) {
        return std::string("show control  refused: ") + error.what() + "  " +
               Hex(bytes, count < kMostSpelt ? count : kMostSpelt);
    }
}

std::string SystemText(const std::uint8_t* bytes, std::size_t count) {
    switch (bytes[0]) {
        case 0xF0:
            if (count > 4 && bytes[1] == 0x7F && bytes[3] == 0x02)
                return ShowControlText(bytes, count);
            return zell::format("system exclusive  %u bytes  %s%s", count,
                                Hex(bytes, count < kMostSpelt ? count : kMostSpelt), count > kMostSpelt ? " ..." : "");
        case 0xF1: return zell::format("time code  quarter frame %02X", bytes[1]);
        case 0xF2: return zell::format("song position  %d", bytes[1] | bytes[2] << 7);
        case 0xF3: return zell::format("song select  %d", bytes[1]);
        case 0xF6: return "tune request";
        case 0xF8: return "clock";
        case 0xFA: return "start";
        case 0xFB: return "continue";
        case 0xFC: return "stop";
        case 0xFE: return "active sensing";
        case 0xFF: return "reset";
        default: return "system  " + Hex(bytes, count);
    }
}

}  // namespace

std::string DescribeMidiMessage(const std::uint8_t* bytes, std::size_t count) {
    const int channel = (bytes[0] & 0x0F) + 1;
    switch (bytes[0] & 0xF0) {
        case 0x80: return zell::format("note off  %s  velocity %d  channel %d", NoteName(bytes[1]), bytes[2], channel);
        case 0x90: return zell::format("note on  %s  velocity %d  channel %d", NoteName(bytes[1]), bytes[2], channel);
        case 0xA0: return zell::format("key pressure  %s  %d  channel %d", NoteName(bytes[1]), bytes[2], channel);
        case 0xB0: return zell::format("controller %d  value %d  channel %d", bytes[1], bytes[2], channel);
        case 0xC0: return zell::format("program %d  channel %d", bytes[1] + 1, channel);
        case 0xD0: return zell::format("channel pressure  %d  channel %d", bytes[1], channel);
        case 0xE0: return zell::format("pitch bend  %d  channel %d", (bytes[1] | bytes[2] << 7) - 8192, channel);
        default: return SystemText(bytes, count);
    }
}

}  // namespace player
