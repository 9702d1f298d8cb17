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

TEST_F(DeviceDiagnostics, EveryErrorCodeIsNamedAsThePlatformNamesIt) {
    const std::pair<unsigned int, const char*> rows[] = {
        {1, "MMSYSERR_ERROR unspecified error"},
        {2, "MMSYSERR_BADDEVICEID device ID out of range"},
        {3, "MMSYSERR_NOTENABLED driver failed enable"},
        {4, "MMSYSERR_ALLOCATED device already allocated"},
        {5, "MMSYSERR_INVALHANDLE device handle is invalid"},
        {6, "MMSYSERR_NODRIVER no device driver present"},
        {7, "MMSYSERR_NOMEM memory allocation error"},
        {8, "MMSYSERR_NOTSUPPORTED function isn't supported"},
        {9, "MMSYSERR_BADERRNUM error value out of range"},
        {10, "MMSYSERR_INVALFLAG invalid flag passed"},
        {11, "MMSYSERR_INVALPARAM invalid parameter passed"},
        {12, "MMSYSERR_HANDLEBUSY handle being used simultaneously on another thread (eg callback)"},
        {13, "MMSYSERR_INVALIDALIAS specified alias not found"},
        {14, "MMSYSERR_BADDB bad registry database"},
        {15, "MMSYSERR_KEYNOTFOUND registry key not found"},
        {16, "MMSYSERR_READERROR registry read error"},
        {17, "MMSYSERR_WRITEERROR registry write error"},
        {18, "MMSYSERR_DELETEERROR registry delete error"},
        {19, "MMSYSERR_VALNOTFOUND registry value not found"},
        {20, "MMSYSERR_NODRIVERCB driver does not call DriverCallback"},
        {21, "MMSYSERR_MOREDATA more data to be returned"},
        {64, "MIDIERR_UNPREPARED header not prepared"},
        {65, "MIDIERR_STILLPLAYING still something playing"},
        {66, "MIDIERR_NOMAP no configured instruments"},
        {67, "MIDIERR_NOTREADY hardware is still busy"},
        {68, "MIDIERR_NODEVICE port no longer connected"},
        {69, "MIDIERR_INVALIDSETUP invalid MIF"},
        {70, "MIDIERR_BADOPENMODE operation unsupported w/ open mode"},
        {71, "MIDIERR_DONT_CONTINUE thru device 'eating' a message"},
    };
    for (const auto& [code, text] : rows) {
        EXPECT_EQ(GetMidiErrorAsString(code), text) << code;
        EXPECT_EQ(GetMidiOutErrorText(code), text) << code;
    }
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
    const std::pair<WORD, const char*> technologies[] = {
        {1, "MOD_MIDIPORT: MIDI hardware port."},     {2, "MOD_SYNTH: Synthesizer."},
        {3, "MOD_SQSYNTH: Square wave synthesizer."}, {4, "MOD_FMSYNTH: FM synthesizer."},
        {5, "MOD_MAPPER: Microsoft MIDI mapper."},    {6, "MOD_WAVETABLE: Hardware wavetable synthesizer."},
        {7, "MOD_SWSYNTH: Software synthesizer."},    {8, "Unknown wTechnology value: 8"}};
    for (const auto& [technology, text] : technologies) {
        capabilities.wTechnology = technology;
        EXPECT_EQ(GetTechnologyAsString(capabilities), text) << technology;
    }
}

TEST_F(DeviceDiagnostics, ANameThatFillsItsFieldEndsThere) {
    const std::pair<const wchar_t*, const char*> rows[] = {
        {L"", ""},
        {L"1234567890123456789012345678901", "1234567890123456789012345678901"},
        {L"12345678901234567890123456789012", "12345678901234567890123456789012"}};
    for (const auto& [wide, name] : rows) {
        MIDIOUTCAPSW capabilities{};
        std::wstring(wide).copy(capabilities.szPname, MAXPNAMELEN);
        capabilities.wTechnology = 0x4141;  // what follows the name in the record
        EXPECT_EQ(GetProductName(capabilities), name);
    }
}

TEST_F(DeviceDiagnostics, TheSummaryShowsEveryDeviceAlsoOneThatCannotBeRead) {
    EXPECT_EQ(CreateMidiDeviceSummary(), "There are no available devices for midi output.");
    Layer::Instance().AddOutput(std::make_shared<VirtualMidiOutput>(L"Piano"));
    Layer::Instance().AddOutput(std::make_shared<VirtualMidiOutput>(L"Strings"));
    Layer::Instance().Fail(Fault::kDeviceCaps, 6, 1);
    EXPECT_EQ(CreateMidiDeviceSummary(),
              "Device info for 2 MIDI devices.\n"
              "Unable to retrieve device capabilities for midi device 0\n"
              "Error reported: MMSYSERR_NODRIVER no device driver present\n"
              "\n\n"
              "MIDI device index: 1\n"
              "Midi Output Device:\n"
              "  Manufacturer Identifier: 0\n"
              "  Product Identifier: 0\n"
              "  Driver Version: 256\n"
              "  Product Name: Strings\n"
              "  Type: MOD_MIDIPORT: MIDI hardware port.\n"
              "  Voices: 0\n"
              "  Notes: 0\n"
              "  ChannelMask: 65535\n"
              "  Support: 8\n"
              "\n\n");
}

}  // namespace
