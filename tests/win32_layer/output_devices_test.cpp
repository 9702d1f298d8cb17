#include <gtest/gtest.h>
#include <windows.h>

#include <mmsystem.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"
#include "win32_layer/virtual_midi_output.h"

using namespace std::chrono_literals;
using win32_layer::Fault;
using win32_layer::Layer;
using win32_layer::VirtualMidiInput;
using win32_layer::VirtualMidiOutput;

namespace {

class OutputDeviceList : public testing::Test {
protected:
    OutputDeviceList() { Layer::Instance().Reset(); }
    ~OutputDeviceList() override { Layer::Instance().Reset(); }
};

TEST_F(OutputDeviceList, ANameOf32CharactersAndMoreFillsTheRecordWithoutATerminatingZero) {
    const std::wstring name31(31, L'a'), name32(32, L'b'), long32(32, L'c');
    const std::pair<std::wstring, std::wstring> rows[] = {
        {L"", L""}, {L"piano", L"piano"}, {name31, name31}, {name32, name32}, {long32 + L"more", long32}};
    for (const auto& [name, shown] : rows)
        Layer::Instance().AddOutput(std::make_shared<VirtualMidiOutput>(name));
    ASSERT_EQ(midiOutGetNumDevs(), 5u);
    for (UINT index = 0; index < 5; ++index) {
        struct {
            MIDIOUTCAPSW caps;
            WCHAR beyond = L'!';
        } record;
        EXPECT_EQ(midiOutGetDevCapsW(index, &record.caps, sizeof(record.caps)), 0u);
        std::wstring expected = rows[index].second;
        expected.resize(32, L'\0');
        EXPECT_EQ(std::wstring(record.caps.szPname, 32), expected) << index;
        EXPECT_EQ(record.caps.wTechnology, MOD_MIDIPORT);
        EXPECT_EQ(record.beyond, L'!');
    }
}

TEST_F(OutputDeviceList, NoTwoPlacesOfAListReadTheSameAndAReturningDeviceKeepsItsPlacesName) {
    const std::wstring cut(27, L'a');
    // Bytes of UTF-8, as real devices have them: the one before a number is never half of a character.
    const std::pair<std::wstring, std::wstring> rows[] = {
        {L"keys", L"keys"},
        {L"keys 2", L"keys 2"},
        {L"keys", L"keys 3"},
        {cut + L"\u00C3\u00A9 one", cut + L"\u00C3\u00A9 o"},
        {cut + L"\u00C3\u00A9 o", cut + L"\u00C3\u00A9 2"},
        {cut + L"x\u00C3\u00A9 a", cut + L"x\u00C3\u00A9 "},
        {cut + L"x\u00C3\u00A9 b", cut + L"x 2"},
    };
    Layer& layer = Layer::Instance();
    for (const auto& [name, shown] : rows) {
        layer.AddOutput(std::make_shared<VirtualMidiOutput>(name));
        layer.AddInput(std::make_shared<VirtualMidiInput>(name));
    }
    for (int round = 0; round < 2; ++round) {
        for (UINT index = 0; index < std::size(rows); ++index) {
            MIDIOUTCAPSW output{};
            MIDIINCAPSW input{};
            EXPECT_EQ(midiOutGetDevCapsW(index, &output, sizeof(output)), 0u);
            EXPECT_EQ(midiInGetDevCapsW(index, &input, sizeof(input)), 0u);
            EXPECT_EQ(std::wstring(output.szPname, 31).c_str(), rows[index].second) << index;
            EXPECT_EQ(std::wstring(input.szPname, 31).c_str(), rows[index].second) << index;
        }
        const auto output = layer.GetOutputs()[2];
        const auto input = layer.GetInputs()[2];
        layer.RemoveOutput(output);
        layer.RemoveInput(input);
        layer.AddOutput(output);
        layer.AddInput(input);
    }
}

TEST_F(OutputDeviceList, CapabilitiesAreRefusedForWhatIsNotThereAndCutToTheSizeGiven) {
    const auto device = std::make_shared<VirtualMidiOutput>(L"piano");
    Layer::Instance().AddOutput(device);
    MIDIOUTCAPSW caps{};
    caps.szPname[1] = L'?';
    EXPECT_EQ(midiOutGetDevCapsW(1, &caps, sizeof(caps)), 2u);
    EXPECT_EQ(midiOutGetDevCapsW(MIDI_MAPPER, &caps, sizeof(caps)), 2u);
    EXPECT_EQ(midiOutGetDevCapsW(0, nullptr, sizeof(caps)), 11u);
    Layer::Instance().Fail(Fault::kDeviceCaps, 6, 1);
    EXPECT_EQ(midiOutGetDevCapsW(0, &caps, sizeof(caps)), 6u);
    EXPECT_EQ(midiOutGetDevCapsW(0, &caps, offsetof(MIDIOUTCAPSW, szPname) + sizeof(WCHAR)), 0u);
    EXPECT_EQ(std::wstring(caps.szPname), L"p?");

    HMIDISTRM stream = nullptr;
    UINT index = 0;
    ASSERT_EQ(midiStreamOpen(&stream, &index, 1, 0, 0, CALLBACK_NULL), 0u);
    EXPECT_EQ(midiOutGetDevCapsW(reinterpret_cast<UINT_PTR>(stream), &caps, sizeof(caps)), 0u);
    EXPECT_EQ(std::wstring(caps.szPname), L"piano");
    midiStreamClose(stream);
}

TEST_F(OutputDeviceList, AnErrorTextIsCutToTheCharactersGivenAndAlwaysTerminated) {
    const struct {
        MMRESULT code;
        UINT size;
        MMRESULT result;
        std::wstring text;
    } rows[] = {{0, 256, 0, L"MMSYSERR_NOERROR no error"},
                {22, 256, 9, L"####"},
                {63, 256, 9, L"####"},
                {72, 256, 9, L"####"},
                {0xFFFFFFFF, 256, 9, L"####"},
                {5, 9, 0, L"MMSYSERR"},
                {5, 1, 0, L""},
                {5, 0, 11, L"####"}};
    for (const auto& row : rows) {
        std::vector<WCHAR> text(row.size ? row.size : 5, L'#');  // exactly, so that writing beyond is seen
        text.back() = row.result ? L'\0' : L'#';
        EXPECT_EQ(midiOutGetErrorTextW(row.code, text.data(), row.size), row.result) << row.code;
        EXPECT_EQ(std::wstring(text.data()).substr(0, row.result ? 4 : std::wstring::npos), row.text) << row.code;
    }
    EXPECT_EQ(midiOutGetErrorTextW(1, nullptr, 256), 11u);
    WCHAR text[256];
    Layer::Instance().Fail(Fault::kErrorText, 7, 1);
    EXPECT_EQ(midiOutGetErrorTextW(1, text, 256), 7u);
}

TEST(VirtualMidiOutput, AtWireSpeedEachMessageEndsWhenItsBytesHavePassedAndTheWireIsSharedInOrder) {
    const std::uint8_t note[] = {0x90, 0x3C, 0x64};
    const std::uint8_t program[] = {0xC0, 0x05};
    VirtualMidiOutput output(L"wire", VirtualMidiOutput::Speed::kWire);
    output.Play(note, 3, 1ms);
    output.Play(program, 2, 1ms);
    output.EndBuffer();
    output.Play(note, 3, 10ms);
    const auto played = output.GetPlayed();
    ASSERT_EQ(played.size(), 3u);
    EXPECT_EQ(played[0].time, 1960us);
    EXPECT_EQ(played[1].time, 2600us);
    EXPECT_EQ(played[2].time, 10'960us);
    EXPECT_EQ(played[1].bytes, (std::vector<std::uint8_t>{0xC0, 0x05}));
    EXPECT_EQ(played[1].buffer, 0u);
    EXPECT_EQ(played[2].buffer, 1u);
}

TEST(VirtualMidiOutput, WhatWouldWaitTooLongForTheWireIsDiscardedAndCounted) {
    const std::uint8_t note[] = {0x90, 0x3C, 0x64};
    VirtualMidiOutput output(L"wire", VirtualMidiOutput::Speed::kWire);
    for (int message = 0; message < 1400; ++message)
        output.Play(note, 3, 0ms);
    EXPECT_EQ(output.GetPlayed().size(), 1365u);  // 4,095 bytes
    EXPECT_EQ(output.GetDiscardedCount(), 35u);
    output.Play(note, 3, 1s);
    EXPECT_EQ(output.GetPlayed().size(), 1366u);
}

}  // namespace
