#include "player/midi_message_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "player/input_commands.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(MidiMessageText, SaysWhatAMessageIs) {
    Bytes longOne(65, 0x01);
    longOne.front() = 0xF0;
    const struct {
        Bytes bytes;
        std::string text;
    } rows[] = {
        {{0x80, 0, 64}, "note off  C-1 (0)  velocity 64  channel 1"},
        {{0x9F, 61, 1}, "note on  C#4 (61)  velocity 1  channel 16"},
        {{0xA0, 127, 2}, "key pressure  G9 (127)  2  channel 1"},
        {{0xB1, 64, 127}, "controller 64  value 127  channel 2"},
        {{0xC0, 127}, "program 128  channel 1"},
        {{0xD2, 5}, "channel pressure  5  channel 3"},
        {{0xE0, 0, 0}, "pitch bend  -8192  channel 1"},
        {{0xE0, 127, 127}, "pitch bend  8191  channel 1"},
        {{0xF1, 0x3A}, "time code  quarter frame 3A"},
        {{0xF2, 1, 2}, "song position  257"},
        {{0xF8}, "clock"},
        {{0xFD}, "system  FD"},
        {{0xF0, 0x7E, 0x09, 0xF7}, "system exclusive  4 bytes  F0 7E 09 F7"},
        {{0xF0, 0x7F, 3, 2, 0x11, 1, '1', 0, '2', 0xF7},
         "show control  GO '1'  list '2'  path ''  device 3  format 11"},
        {{0xF0, 0x7F, 3, 2, 0x11, 2, 0xF7}, "show control  refused: Invalid Msc command  F0 7F 03 02 11 02 F7"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(DescribeMidiMessage(row.bytes.data(), row.bytes.size()), row.text);
    const std::string cut = DescribeMidiMessage(longOne.data(), longOne.size());
    EXPECT_EQ(cut.substr(0, 32), "system exclusive  65 bytes  F0 0");
    EXPECT_EQ(cut.substr(cut.size() - 10), " 01 01 ...");
}

TEST(MidiMessageText, TheGoThatIsSentHasTheseBytes) {
    auto& layer = win32_layer::Layer::Instance();
    const struct {
        ShowControlGo go;
        int status;
        Bytes bytes;
    } rows[] = {
        {{"", "", "", "", 127, false}, 0, {0xF0, 0x7F, 127, 2, 0x11, 1, 0xF7}},
        {{"", "12.5", "", "", 3, true}, 0, {0xF0, 0x7F, 3, 2, 0x17, 1, '1', '2', '.', '5', 0xF7}},
        {{"", "1", "2", "3", 0, false}, 0, {0xF0, 0x7F, 0, 2, 0x11, 1, '1', 0, '2', 0, '3', 0xF7}},
        {{"", "1", "", "3", 0, false}, 0, {0xF0, 0x7F, 0, 2, 0x11, 1, '1', 0, 0, '3', 0xF7}},
        {{"", "", "2", "", 0, false}, 2, {}},
        {{"", "1a", "", "", 0, false}, 2, {}},
    };
    for (auto row : rows) {
        layer.Reset();
        const auto output = std::make_shared<win32_layer::VirtualMidiOutput>(L"Sound desk");
        layer.AddOutput(output);
        row.go.output = "Sound desk";
        EXPECT_EQ(SendShowControl(row.go), row.status);
        Bytes sent;
        for (const auto& played : output->GetPlayed())
            sent.insert(sent.end(), played.bytes.begin(), played.bytes.end());
        EXPECT_EQ(sent, row.bytes) << row.go.cue << " " << row.go.list << " " << row.go.path;
    }
    layer.Reset();
}

}  // namespace
}  // namespace player
