#include "player/device_name.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "player/midi_input.h"
#include "player/output_devices.h"
#include "player/remembered_device.h"
#include "tests/player/temporary_folder.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {
namespace {

TEST(DeviceName, IsUtf8HoweverThePlatformTellsIt) {
    const std::wstring thirty(30, L'x');
    const std::string shownThirty(30, 'x');
    const struct {
        std::wstring field;
        std::string name;
    } rows[] = {
        {{L"Keys\0rest", 9}, "Keys"},
        {{L"Fl\xFCgel\0", 7}, "Fl\xC3\xBCgel"},
        {{L"Fl\xC3\xBCgel\0", 8}, "Fl\xC3\xBCgel"},
        {{L"\x30D4\x30A2\x30CE \xFC\0\0", 7}, "\xE3\x83\x94\xE3\x82\xA2\xE3\x83\x8E \xC3\xBC"},
        {{L'\xD83C', L'\xDFB9', L'!', L'\xDFB9', 0}, "\xF0\x9F\x8E\xB9!?"},
        {thirty + L"\xC3", shownThirty},
        {thirty + std::wstring(L"\xC3\xBC", 2), shownThirty + "\xC3\xBC"},
        {L"\xC3\xBC" + thirty + L"\xE3\x83", "\xC3\xBC" + shownThirty},
        {thirty.substr(1) + L"\xFC" + L"x", shownThirty.substr(1) + "\xC3\xBCx"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(DeviceName(row.field), row.name);
}

TEST(DeviceName, IsListedChosenAndFoundAgain) {
    auto& layer = win32_layer::Layer::Instance();
    // As UTF-16, and as systems without wide names are told.
    for (const std::wstring told : {L"Fl\xFCgel", L"Fl\xC3\xBCgel"}) {
        const std::string name = "Fl\xC3\xBCgel";
        layer.Reset();
        for (const std::wstring& each : {std::wstring(L"Keys"), told}) {
            layer.AddInput(std::make_shared<win32_layer::VirtualMidiInput>(each));
            layer.AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
                each, win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
        }
        const std::vector<std::string> both = {"Keys", name};
        EXPECT_EQ(MidiInput::GetNames(), both);
        EXPECT_EQ(OutputDevices::GetNames(), both);
        EXPECT_EQ(MidiInput::Select(name), 1u);
        EXPECT_EQ(OutputDevices::Select(name), "1");
        EXPECT_NE(OutputDevices::Describe().find("  Product Name: " + name + "\n"), std::string::npos);
        const TemporaryFolder folder;
        const RememberedDevice remembered(folder / "show");
        remembered.Store(name);
        EXPECT_EQ(remembered.Find(0, OutputDevices::GetNames()), std::optional<std::size_t>(1));
    }
    layer.Reset();
}

}  // namespace
}  // namespace player
