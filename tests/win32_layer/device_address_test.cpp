#include "win32_layer/Sources/real_devices/device_address.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using win32_layer::DeviceAddress;
using win32_layer::DeviceSystem;

TEST(DeviceAddress, ADeviceIsKnownByWhatStaysWhenItIsPluggedInAgain) {
    const struct {
        DeviceAddress address;
        std::string identity;
    } rows[] = {{{DeviceSystem::kAlsa, "Synth:Synth MIDI 1 20:0", nullptr, {}}, "alsa:Synth:Synth MIDI 1"},
                {{DeviceSystem::kAlsa, "Synth:Synth MIDI 1 24:0", nullptr, {}}, "alsa:Synth:Synth MIDI 1"},
                {{DeviceSystem::kAlsa, "Synth:Synth MIDI 12", nullptr, {}}, "alsa:Synth:Synth MIDI"},
                {{DeviceSystem::kAlsa, "20:0", nullptr, {}}, "alsa:20:0"},
                {DeviceAddress::OfJack("sampler:in 20:0", "", nullptr), "jack:sampler:in 20:0"},
                {DeviceAddress::OfJack("sampler:in", "alsa_pcm:Synth/midi_playback_1", nullptr), "jack:sampler:in"},
                {DeviceAddress::OfJack("Midi-Bridge:Synth", "alsa:seq:default:client_20:playback_0", nullptr),
                 "jack:Midi-Bridge:Synth"},
                {DeviceAddress::OfJack("system:midi_playback_2", "", nullptr), "jack:system:midi_playback_2"},
                {DeviceAddress::OfJack("system:midi_playback_2", "alsa_pcm:Synth/midi_playback_1", nullptr),
                 "jack:Synth midi_playback_1"},
                {DeviceAddress::OfJack("system:midi_playback_2", "alsa_pcm:A/B (hw:1,0)/out", nullptr),
                 "jack:A/B (hw:1,0) out"},
                {DeviceAddress::OfJack("system:midi_playback_2", "Synth", nullptr), "jack:Synth"},
                {DeviceAddress::OfJack("system:midi_playback_2", "Synth:", nullptr), "jack:Synth:"}};
    for (const auto& [address, identity] : rows)
        EXPECT_EQ(address.GetIdentity(), identity) << address.name << ", " << address.alias;
}

TEST(DeviceAddress, TheRecordsNameKeepsWhatTellsThePortsOfADeviceApart) {
    const struct {
        std::string name;
        std::wstring shown;
    } rows[] = {{"Synth:Synth MIDI 1 20:0", L"Synth MIDI 1"},
                {"Synth:Port 1 20:0", L"Synth:Port 1"},
                {"Keys: 1:Keys: 1 MIDI 2 20:0", L"Keys: 1 MIDI 2"},
                {"a:12345678901234567890123456789 20:0", L"a:12345678901234567890123456789"},
                {"a:123456789012345678901234567890 20:0", L"a:1234567890~b649~8901234567890"},
                // Two bytes to a character, of which neither may stand alone: none is cut at the head or at the tail.
                {"a:123456789012\xC3\xA4XY 20:0", L"a:123456789012\u00C3\u00A4XY"},
                {"a:123456789\xC3\xA4XYZ6789012345678901 20:0", L"a:123456789~53ad~89012345678901"},
                {"b:12345678901234567890\xC3\xA4Xbcdefghijkl 20:0", L"b:1234567890~edd7~Xbcdefghijkl"},
                // What is cut out tells them apart all the same.
                {"Stage Pedalboard LEFT footswitches:out", L"Stage Pedalb~3f39~tswitches:out"},
                {"Stage Pedalboard RIGHT footswitches:out", L"Stage Pedalb~11f5~tswitches:out"}};
    for (const auto& [name, shown] : rows) {
        const std::wstring is = DeviceAddress{DeviceSystem::kAlsa, name, nullptr, {}}.GetPlatformName();
        EXPECT_EQ(is, shown) << name;
        EXPECT_LE(is.size(), 31u) << name;
    }
}

}  // namespace
