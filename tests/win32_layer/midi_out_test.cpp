#include <gmock/gmock.h>
#include <windows.h>

#include <mmsystem.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "tests/midi/patience.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace {

using testing::ElementsAre;
using win32_layer::Fault;
using win32_layer::Layer;
using win32_layer::VirtualMidiOutput;

using Bytes = std::vector<std::uint8_t>;

class MidiOutLayer : public testing::Test {
protected:
    MidiOutLayer() {
        Layer::Instance().Reset();
        Layer::Instance().AddOutput(device_);
    }
    ~MidiOutLayer() override {
        midiOutReset(output_);
        midiOutUnprepareHeader(output_, &header_, sizeof(header_));
        midiOutClose(output_);
        Layer::Instance().Reset();
        EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
        EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 0);
    }

    MMRESULT Open() {
        return midiOutOpen(&output_, 0, reinterpret_cast<DWORD_PTR>(&OnMessage), reinterpret_cast<DWORD_PTR>(this),
                           CALLBACK_FUNCTION);
    }
    void Prepare() {
        header_.lpData = reinterpret_cast<LPSTR>(fullFrame_.data());
        header_.dwBufferLength = static_cast<DWORD>(fullFrame_.size());
        ASSERT_EQ(midiOutPrepareHeader(output_, &header_, sizeof(header_)), 0u);
    }
    std::vector<Bytes> Played() const {
        std::vector<Bytes> played;
        for (const auto& message : device_->GetPlayed())
            played.push_back(message.bytes);
        return played;
    }

    const std::shared_ptr<VirtualMidiOutput> device_ = std::make_shared<VirtualMidiOutput>(L"one");
    HMIDIOUT output_ = nullptr;
    Bytes fullFrame_ = {0xF0, 0x7F, 0x7F, 1, 1, 0x61, 2, 3, 4, 0xF7};
    MIDIHDR header_{};
    Count done_;

private:
    static void CALLBACK OnMessage(HMIDIOUT, UINT message, DWORD_PTR instance, DWORD_PTR, DWORD_PTR) {
        if (message == MOM_DONE)
            reinterpret_cast<MidiOutLayer*>(instance)->done_.Add();
    }
};

TEST_F(MidiOutLayer, ShortMessagesPlayAtOnceWithTheBytesThatTheirStatusTakes) {
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(midiOutShortMsg(output_, 0x00643C90), 0u);
    EXPECT_EQ(midiOutShortMsg(output_, 0x00FF25F1), 0u);
    EXPECT_EQ(midiOutShortMsg(output_, 0x0000FFF8), 0u);
    EXPECT_EQ(midiOutShortMsg(output_, 0x0000003C), static_cast<MMRESULT>(MMSYSERR_INVALPARAM)) << "no status";
    EXPECT_EQ(midiOutShortMsg(output_, 0x000000F0), static_cast<MMRESULT>(MMSYSERR_INVALPARAM)) << "not whole";
    EXPECT_THAT(Played(), ElementsAre(Bytes{0x90, 0x3C, 0x64}, Bytes{0xF1, 0x25}, Bytes{0xF8}));
}

TEST_F(MidiOutLayer, ALongMessagePlaysWithoutARestartAndComesBack) {
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(midiOutLongMsg(output_, &header_, sizeof(header_)), static_cast<MMRESULT>(MIDIERR_UNPREPARED));
    Prepare();
    EXPECT_EQ(midiOutLongMsg(output_, &header_, sizeof(header_)), 0u);
    ASSERT_TRUE(done_.WaitFor(1));
    EXPECT_THAT(Played(), ElementsAre(fullFrame_));
    EXPECT_EQ(midiStreamOut(reinterpret_cast<HMIDISTRM>(output_), &header_, sizeof(header_)),
              static_cast<MMRESULT>(MMSYSERR_INVALHANDLE));
}

TEST_F(MidiOutLayer, AnOutputWithAQueuedBufferClosesOnlyAfterAReset) {
    ASSERT_EQ(Open(), 0u);
    Prepare();
    Layer::Instance().HoldBuffers(1);
    ASSERT_EQ(midiOutLongMsg(output_, &header_, sizeof(header_)), 0u);
    EXPECT_EQ(midiOutLongMsg(output_, &header_, sizeof(header_)), static_cast<MMRESULT>(MIDIERR_STILLPLAYING));
    EXPECT_EQ(midiOutUnprepareHeader(output_, &header_, sizeof(header_)), static_cast<MMRESULT>(MIDIERR_STILLPLAYING));
    EXPECT_EQ(midiOutClose(output_), static_cast<MMRESULT>(MIDIERR_STILLPLAYING));

    EXPECT_EQ(midiOutReset(output_), 0u);
    ASSERT_TRUE(done_.WaitFor(1));
    EXPECT_EQ(Played().size(), 16u * 129u) << "a damper and 128 note-offs a channel, and not what was held";
}

TEST_F(MidiOutLayer, ARefusedOpenLeavesNoHandle) {
    Layer::Instance().Fail(Fault::kOpen, MMSYSERR_ALLOCATED, 1);
    EXPECT_EQ(Open(), static_cast<MMRESULT>(MMSYSERR_ALLOCATED));
    EXPECT_EQ(output_, nullptr);
    EXPECT_EQ(midiOutOpen(&output_, 7, 0, 0, CALLBACK_NULL), static_cast<MMRESULT>(MMSYSERR_BADDEVICEID));
    EXPECT_EQ(midiOutShortMsg(output_, 0x00643C90), static_cast<MMRESULT>(MMSYSERR_INVALHANDLE));
}

}  // namespace
