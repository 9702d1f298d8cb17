#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "midi/invalid_voice_event.h"
#include "midi/midi_device_unavailable.h"
#include "midi/midi_implementation_error.h"
#include "midi/win32/data_buffer.h"
#include "midi/win32/device_diagnostics.h"
#include "midi/win32/midi_buffer_win32.h"
#include "midi/win32/midi_output_ports_win32.h"
#include "midi/win32/win_synth.h"
#include "tests/midi/console_capture.h"
#include "tests/midi/message_of.h"
#include "tests/midi/output_rig.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;
using win32_layer::Fault;
using win32_layer::Layer;
using win32_layer::VirtualMidiOutput;

namespace {

const vemo_midi::VoiceEvent kNote(0, 0x90, 3, 60, 100);

class StreamBuffers : public testing::Test {
protected:
    StreamBuffers() {
        Layer::Instance().Reset();
        Layer::Instance().AddOutput(device);
        Layer::Instance().SetDelivery(win32_layer::Delivery::kInline);
    }
    ~StreamBuffers() override { Layer::Instance().Reset(); }
    std::vector<Bytes> Played() { return PlayedBytes(*device); }

    std::shared_ptr<VirtualMidiOutput> device = std::make_shared<VirtualMidiOutput>(L"Stage Piano");
    ConsoleCapture console;
};

TEST_F(StreamBuffers, ARecordIsTwelveBytesWithChannel15WhereAsked) {
    DataBuffer buffer(1200, 2, "Cycle");
    buffer.AddVoiceEvent(kNote);
    buffer.SetUseChannel15();
    buffer.AddVoiceEvent(kNote);
    buffer.AddCallbackEvent(0x42000000);
    const std::uint8_t expected[] = {0, 0, 0, 0, 0, 0, 0, 0, 0x93, 60, 100, 0,  //
                                     0, 0, 0, 0, 0, 0, 0, 0, 0x9F, 60, 100, 0,  //
                                     0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0,  0,   0x42};
    ASSERT_EQ(buffer.GetEventCount(), 3);
    EXPECT_EQ(std::memcmp(buffer.GetRawData(), expected, sizeof(expected)), 0);
    EXPECT_EQ(buffer.GetMidiHeader().dwBytesRecorded, 36u);
    EXPECT_EQ(buffer.GetMidiHeader().dwBufferLength, 36u);
}

TEST_F(StreamBuffers, ABufferIsFullAtItsLastWholeRecordAndNeverWrittenBeyond) {
    const std::pair<std::uint16_t, int> rows[] = {{11, 0}, {12, 1}, {35, 2}, {65535, 5461}};
    for (const auto& [size, records] : rows) {
        MidiBufferWin32 buffer(1, size, "Cycle");
        int taken = 0;
        while (taken < 6000 && buffer.AddEventToBuffer(0, kNote))
            ++taken;
        EXPECT_EQ(taken, records) << size;
        buffer.AddPositionCallback();  // no room: the sanitizer sees a write
        EXPECT_EQ(buffer.GetPortEventCount(0), records) << size;
        buffer.Reset();
        EXPECT_EQ(buffer.GetBufferIsFull(0), records == 0) << size;
    }
}

TEST_F(StreamBuffers, AnEventThatIsNoChannelMessageIsReportedInNumbersAndStored) {
    DataBuffer buffer(120, 0, "Cycle");
    buffer.AddVoiceEvent({0, 0x90, 3, 200, 100});
    EXPECT_EQ(console.Take(), "Attempting to add invalid voice event:\n  status = 144\n  data1 = 200\n  data2 = 100\n");
    EXPECT_EQ(buffer.GetEventCount(), 1);
}

TEST_F(StreamBuffers, PortsThatDoNotExistAreFullRefusedAndEmpty) {
    MidiBufferWin32 buffer(2, 120, "Cycle");
    for (const std::uint8_t port : {2, 16, 255}) {
        EXPECT_TRUE(buffer.GetBufferIsFull(port));
        EXPECT_FALSE(buffer.AddEventToBuffer(port, {0, 0xC0, 0, 5, 0}));
        EXPECT_EQ(buffer.GetPortEventCount(port), 0);
        EXPECT_EQ(MessageOf<std::out_of_range>([&] { buffer.GetDataBuffer(port); }), "invalid vector subscript");
        EXPECT_EQ(MessageOf<std::out_of_range>([&] { buffer.QuarantineDataBuffer(port, nullptr); }),
                  "invalid vector subscript");
    }
    EXPECT_TRUE(buffer.AddEventToBuffer(1, kNote));
}

TEST_F(StreamBuffers, AMovedBufferTakesAlongWhatTheStreamKnowsItBy) {
    DataBuffer first(120, 1, "Cycle");
    first.AddVoiceEvent(kNote);
    first.SetInUse();
    DataBuffer second(std::move(first));
    DataBuffer third(12, 0, "Other");
    third = std::move(second);
    EXPECT_EQ(third.GetMidiHeader().dwUser, reinterpret_cast<DWORD_PTR>(&third));
    EXPECT_EQ(third.GetMidiHeader().lpData, static_cast<LPSTR>(third.GetRawData()));
    EXPECT_EQ(third.GetMidiHeader().dwBytesRecorded, 12u);
    EXPECT_EQ(third.GetBufferName(), "Cycle data buffer 1");
    EXPECT_EQ(MessageOf<MidiImplementationError>([&] { third.SetInUse(); }), "Cycle data buffer 1 in use");
    third.SignalMidiStreamOutDone();
    EXPECT_TRUE(third.WaitForMidiStreamOutDone(0));
}

TEST_F(StreamBuffers, AFailedCallIsNamedWithItsCodeAndChangesNothing) {
    WinSynth synth;
    MidiBufferWin32 buffer(1, 120, "Cycle");
    buffer.AddEventToBuffer(0, kNote);
    DataBuffer& data = buffer.GetDataBuffer(0);
    struct Row {
        Fault fault;
        std::function<void()> call;
        bool prepared;
        const char* source;
        const char* function;
    };
    const HMIDIOUT handle = synth.GetStreamHandle();
    const Row rows[] = {
        {Fault::kPrepare, [&] { data.PrepareHeader(handle); }, false, "data_buffer", "midiOutPrepareHeader"},
        {Fault::kRestart, [&] { synth.Restart(); }, true, "win_synth", "midiStreamRestart"},
        {Fault::kOut, [&] { synth.SendDataBuffer(&buffer, 0); }, true, "win_synth", "midiStreamOut"},
        {Fault::kUnprepare, [&] { data.UnprepareHeader(handle); }, true, "data_buffer", "midiOutUnprepareHeader"}};
    for (const Row& row : rows) {
        if (row.prepared)
            data.PrepareHeader(handle);
        Layer::Instance().Fail(row.fault, 7, 1);
        const std::string message = MessageOf<MidiImplementationError>(row.call);
        EXPECT_THAT(message, StartsWith("midi/Sources/win32/" + std::string(row.source) + " line "));
        EXPECT_THAT(message, EndsWith(": calling " + std::string(row.function) +
                                      " caused error 7, MMSYSERR_NOMEM memory allocation error."));
        EXPECT_EQ(data.GetHeaderIsPrepared(), row.prepared) << row.function;
        EXPECT_FALSE(data.GetInUse()) << row.function;
    }
    EXPECT_THAT(Played(), IsEmpty());
    synth.Restart();
    synth.SendDataBuffer(&buffer, 0);  // what failed is sent as it was
    EXPECT_THAT(Played(), ElementsAre(Bytes{0x93, 60, 100}));
    buffer.UnprepareHeaders(handle);
}

TEST_F(StreamBuffers, AStreamThatCannotBeOpenedSaysWhyAndWhatThereIs) {
    Layer::Instance().Fail(Fault::kOpen, 4, 1);
    EXPECT_EQ(MessageOf<MidiDeviceUnavailable>([] { WinSynth synth; }),
              "CreateSynthOutput() error 4, MMSYSERR_ALLOCATED device already allocated\n" + CreateMidiDeviceSummary());
}

TEST_F(StreamBuffers, OnlyWhatWasPreparedForThisStreamIsSent) {
    WinSynth synth;
    WinSynth other;
    MidiBufferWin32 buffer(2, 120, "Cycle");
    buffer.AddEventToBuffer(0, kNote);
    EXPECT_EQ(MessageOf<std::logic_error>([&] { synth.SendDataBuffer(&buffer, 0); }), "Header is not prepared.");
    EXPECT_EQ(console.Take(), "Header is not prepared.\n");
    buffer.PrepareHeaders(other.GetStreamHandle());
    EXPECT_EQ(MessageOf<std::logic_error>([&] { synth.SendDataBuffer(&buffer, 0); }), "mismatched output handles.");
    EXPECT_EQ(console.Take(), "Prepared output handle does not match.\n");
    other.SendDataBuffer(&buffer, 1);  // empty: neither sent nor waited for, though the stream is paused
    EXPECT_EQ(Layer::Instance().GetCounters().streamOuts, 0u);
    buffer.UnprepareHeaders(other.GetStreamHandle());
}

TEST_F(StreamBuffers, AQuarantinedBufferIsReplacedAndDroppedOnceItsStreamIsDoneWithIt) {
    auto synth = std::make_unique<WinSynth>();
    const HMIDIOUT handle = synth->GetStreamHandle();
    MidiBufferWin32 buffer(2, 120, "Cycle");
    buffer.PrepareHeaders(handle);
    buffer.AddEventToBuffer(1, kNote);
    DataBuffer& held = buffer.GetDataBuffer(1);
    held.SetInUse();
    buffer.QuarantineDataBuffer(1, handle);
    EXPECT_NE(&buffer.GetDataBuffer(1), &held);
    EXPECT_EQ(buffer.GetDataBuffer(1).GetPreparedOutputHandle(), handle);
    EXPECT_EQ(buffer.GetPortEventCount(1), 0);
    buffer.AddEventToBuffer(1, kNote);
    EXPECT_EQ(static_cast<std::uint8_t*>(buffer.GetPacketDataAtPortIndex(1))[8], 0x9F);  // the port's channel

    buffer.CleanUpQuarantinedDataBuffers(handle);
    EXPECT_EQ(buffer.GetQuarantinedDataBufferCount(), 1u);  // still held
    held.SignalMidiStreamOutDone();
    buffer.CleanUpQuarantinedDataBuffers(handle);
    EXPECT_FALSE(buffer.GetHasQuarantinedDataBuffers());
    EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 2);

    // Of a stream that is closed nothing is asked any more.
    for (const bool atClose : {true, false}) {
        buffer.GetDataBuffer(0).SetInUse();
        buffer.QuarantineDataBuffer(0, handle);
        Layer::Instance().Fail(Fault::kUnprepare, 5, 1);
        if (atClose)
            buffer.DropQuarantinedDataBuffers(handle);
        else
            buffer.CleanUpQuarantinedDataBuffers(nullptr);
        EXPECT_FALSE(buffer.GetHasQuarantinedDataBuffers()) << atClose;
        Layer::Instance().Fail(Fault::kUnprepare, 0, 0);
    }
    synth.reset();
}

TEST_F(StreamBuffers, PortsSendTheirOwnShareInOrderOnceAStreamIsConnected) {
    WinSynth synth;
    MidiOutputPortsWin32 ports(3);
    const auto buffer = std::make_shared<MidiBufferWin32>(3, 120, "Cycle");
    ports.RegisterMidiBuffer(buffer);
    for (const std::uint8_t port : {2, 0, 1})
        buffer->AddEventToBuffer(port, {0, 0x80, 0, static_cast<std::uint8_t>(10 * port), 0});
    ports.SendMidiBuffer(*buffer);
    EXPECT_THAT(Played(), IsEmpty());

    ports.ConnectSynth(synth);
    ports.SendMidiBuffer(*buffer);
    EXPECT_THAT(Played(), ElementsAre(Bytes{0x80, 0, 0}, Bytes{0x8F, 10, 0}, Bytes{0x8F, 20, 0}));
    buffer->Reset();
    buffer->AddEventToBuffer(1, kNote);
    ports.SendMidiBuffer(*buffer);
    EXPECT_EQ(Layer::Instance().GetCounters().streamOuts, 4u);

    buffer->GetDataBuffer(0).SetInUse();  // as if the stream never gave it back
    buffer->QuarantineDataBuffer(0, synth.GetStreamHandle());
    ports.DisconnectSynth(synth);
    EXPECT_EQ(console.Take(), "WARNING: Cycle has 1 quarantined data buffers after midiStreamStop.\n");
    EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 1);
}

TEST_F(StreamBuffers, APortShowsItsDeviceAndPassesOnWhatItsStreamThrows) {
    MidiOutputPortWin32 port(0);
    EXPECT_EQ(port.GetDisplayName(), "Stage Piano");
    EXPECT_EQ(MidiOutputPortWin32(1).GetDisplayName(), "Not a valid output device.");

    MidiOutputPortWin32 silent(65);
    silent.SetMidiOutputCallback([](MidiBufferWin32*, std::uint8_t) { throw InvalidVoiceEvent("odd"); });
    port = silent;  // a copy has the callback
    MidiBufferWin32 buffer(1, 120, "Cycle");
    EXPECT_EQ(MessageOf<InvalidVoiceEvent>([&] { port.SendMidiBuffer(buffer); }), "odd");
    EXPECT_EQ(console.Take(), "InvalidVoiceEvent for port 65\n");
}

}  // namespace
