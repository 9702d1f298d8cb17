#include "midi/win32/device_diagnostics.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

using win32_layer::Fault;
using win32_layer::Layer;
using win32_layer::VirtualMidiOutput;

namespace {

class DeviceDiagnostics : public testing::Test {
protected:
    DeviceDiagnostics() { Layer::Instance().Reset(); }
    ~DeviceDiagnostics() override { Layer::Instance().Reset(); }
};

// The platform's texts are a table of their own.
TEST_F(DeviceDiagnostics, EveryErrorCodeIsNamedAsThePlatformNamesIt) {
    for (unsigned int code = 1; code < 72; code += code == 21 ? 43 : 1)
        EXPECT_EQ(GetMidiErrorAsString(code), GetMidiOutErrorText(code)) << code;
    EXPECT_EQ(GetMidiErrorAsString(21), "MMSYSERR_MOREDATA more data to be returned");
    EXPECT_EQ(GetMidiErrorAsString(64), "MIDIERR_UNPREPARED header not prepared");
    for (const unsigned int code : {0, 22, 63, 72})
        EXPECT_EQ(GetMidiErrorAsString(code), "Unknown error code " + std::to_string(code));
}

TEST_F(DeviceDiagnostics, AnErrorWithoutATextOfThePlatformIsStillTold) {
    const std::pair<unsigned int, const char*> rows[] = {{9, "MMSYSERR_BADERRNUM: Unknown error 1234"},
                                                         {11, "midiOutGetErrorText MMSYSERR_INVALPARAM"},
                                                         {7, "midiOutGetErrorText: Unknown error 1234"}};
    for (const auto& [result, text] : rows) {
        Layer::Instance().Fail(Fault::kErrorText, result, 1);
        EXPECT_EQ(GetMidiOutErrorText(1234), text) << result;
    }
}

TEST_F(DeviceDiagnostics, ADeviceIsDescribedInTenLines) {
    MIDIOUTCAPSW capabilities{1, 2, 0x1'0203, L"", 0, 3, 4, 0xFFFF, 0x8000'0008};
    std::wstring(L"Flügel mit Hall").copy(capabilities.szPname, MAXPNAMELEN);
    EXPECT_EQ(GetMidiOutDevCapsAsString(capabilities),
              "Midi Output Device:\n"
              "  Manufacturer Identifier: 1\n"
              "  Product Identifier: 2\n"
              "  Driver Version: 66051\n"
              "  Product Name: Fl\xFCgel mit Hall\n"
              "  Type: Unknown wTechnology value: 0\n"
              "  Voices: 3\n"
              "  Notes: 4\n"
              "  ChannelMask: 65535\n"
              "  Support: 2147483656\n");
    capabilities.wTechnology = 7;
    EXPECT_EQ(GetTechnologyAsString(capabilities), "MOD_SWSYNTH: Software synthesizer.");
}

TEST_F(DeviceDiagnostics, TheSummaryShowsEveryDeviceAlsoOneThatCannotBeRead) {
    EXPECT_EQ(CreateMidiDeviceSummary(), "There are no available devices for midi output.");
    Layer::Instance().AddOutput(std::make_shared<VirtualMidiOutput>(L"Piano"));
    Layer::Instance().AddOutput(std::make_shared<VirtualMidiOutput>(L"Strings"));
    MIDIOUTCAPSW strings{};
    midiOutGetDevCapsW(1, &strings, sizeof(strings));
    Layer::Instance().Fail(Fault::kDeviceCaps, 6, 1);
    EXPECT_EQ(CreateMidiDeviceSummary(),
              "Device info for 2 MIDI devices.\n"
              "Unable to retrieve device capabilities for midi device 0\n"
              "Error reported: MMSYSERR_NODRIVER no device driver present\n"
              "\n\n"
              "MIDI device index: 1\n" +
                  GetMidiOutDevCapsAsString(strings) + "\n\n");
}

}  // namespace
