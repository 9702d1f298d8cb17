#include "midi/midi_ports.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "midi/midi_port_error.h"
#include "midi/win32/midi_input_port_win32.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"

using win32_layer::Fault;
using win32_layer::Layer;
using win32_layer::VirtualMidiInput;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class InputPorts : public testing::Test {
protected:
    InputPorts() { Layer::Instance().Reset(); }
    ~InputPorts() override { Layer::Instance().Reset(); }

    void Add(const std::vector<std::wstring>& names) {
        for (const std::wstring& name : names)
            Layer::Instance().AddInput(std::make_shared<VirtualMidiInput>(name));
    }
    std::vector<std::string> Sources() {
        std::vector<std::string> lines;
        for (const MidiEndPoint& source : GetNonVemoMidiSources())
            lines.push_back(std::to_string(source.GetSourceIndex()) + " " + source.GetSourceName());
        return lines;
    }
    template <class Lookup>
    std::string Said(Lookup lookup) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(lookup(), 0);
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(InputPorts, AreOfferedWithoutTheProductsOwn) {
    Add({L"VEMO Out", L"IAC Driver VEMO Bus 1", L"Keyboard", L"VEM", L"Vemo", L"IAC Driver Bus 1", L" VEMO"});
    EXPECT_THAT(GetMidiInputPortNames(), ElementsAre("VEMO Out", "IAC Driver VEMO Bus 1", "Keyboard", "VEM", "Vemo",
                                                     "IAC Driver Bus 1", " VEMO"));
    EXPECT_THAT(Sources(), ElementsAre("2 Keyboard", "3 VEM", "4 Vemo", "5 IAC Driver Bus 1", "6  VEMO"));
    for (const int index : {-1, 0, 1, 7, 256, 258})
        EXPECT_FALSE(IsValidNonVemoSourceIndex(index)) << index;
    EXPECT_TRUE(IsValidNonVemoSourceIndex(2));
    EXPECT_THAT(GetNonVemoMidiDestinations(), IsEmpty());
    EXPECT_FALSE(IsValidNonVemoDestinationIndex(2));

    EXPECT_EQ(Said([] { return GetUniqueIdFromIndex(6) + GetIndexFromUniqueId(0); }), "");
    EXPECT_EQ(Said([] { return GetUniqueIdFromIndex(7); }), "Unable to get unique midi id from index.\n");
    EXPECT_EQ(Said([] { return GetIndexFromUniqueId(1); }), "Unable to get index from unique id.\n");
}

TEST_F(InputPorts, MayBeNoneOrTooMany) {
    EXPECT_THAT(GetMidiInputPorts(), IsEmpty());
    EXPECT_THAT(Sources(), IsEmpty());
    EXPECT_FALSE(IsValidNonVemoSourceIndex(0));
    EXPECT_EQ(Said([] { return GetIndexFromUniqueId(0); }), "Unable to get index from unique id.\n");
    Add(std::vector<std::wstring>(257, L"Keyboard"));
    ASSERT_EQ(GetMidiInputPorts().size(), 256u);
    EXPECT_EQ(GetMidiInputPorts().back()->GetPortIndex(), 255);
}

TEST_F(InputPorts, AreNamedByTheLowBytesOfTheirName) {
    Add({L"12345678901234567890123456789012", L"Fl\u00FCgel \u4E2D"});
    EXPECT_THAT(GetMidiInputPortNames(), ElementsAre("12345678901234567890123456789012", "Fl\xFCgel \x2D"));
    MidiInputPortWin32 missing(2);
    EXPECT_EQ(missing.GetDisplayName(), "Not a valid input device.");
    EXPECT_TRUE(missing.SetUniqueId(5));
    EXPECT_EQ(missing.GetUniqueId(), 0);
}

TEST_F(InputPorts, TellWhyTheyCannotBeOpenedOrStarted) {
    Add({L"Keyboard"});
    const MidiInputPortWin32::InputCallback ignore = [](HMIDIIN, UINT, DWORD_PTR, DWORD_PTR, DWORD_PTR) {};
    int target = 0;
    Layer::Instance().Fail(Fault::kInputOpen, MMSYSERR_ALLOCATED, 1);
    EXPECT_THAT([&] { MidiInputPortWin32(0, ignore, &target); },
                testing::ThrowsMessage<MidiPortError>("midiInOpen: 4 Interrupted system call"));
    MidiInputPortWin32 port(0, ignore, &target);
    EXPECT_EQ(port.GetCallbackTarget(), &target);
    Layer::Instance().Fail(Fault::kInputStart, MMSYSERR_NODRIVER, 1);
    EXPECT_THAT([&] { port.Start(); },
                testing::ThrowsMessage<MidiPortError>("midiInStart: 6 No such device or address"));
    EXPECT_FALSE(port.GetIsRunning());
    port.Start();
    EXPECT_TRUE(port.GetIsRunning());
    port.KillIt();
    EXPECT_FALSE(port.GetIsRunning());
    EXPECT_EQ(Layer::Instance().GetCounters().openInputs, 0);
    port.KillIt();
    EXPECT_THAT([&] { port.Start(); }, testing::ThrowsMessage<MidiPortError>("midiInStart: 5 Input/output error"));
}

}  // namespace
