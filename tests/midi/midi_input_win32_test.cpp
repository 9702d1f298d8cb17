#include "midi/win32/midi_input_win32.h"

#include <gmock/gmock.h>

#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "midi/midi_message_dispatcher.h"
#include "midi/midi_port_error.h"
#include "tests/midi/exception_capture.h"
#include "tests/midi/patience.h"
#include "tests/midi/three_inputs.h"

namespace {

using testing::ElementsAre;
using win32_layer::Fault;
using win32_layer::Layer;

class MidiInput : public testing::Test {
protected:
    MidiInput() {
        dispatcher_->SetInputFilter([this](const MIDIMessage& message) {
            {
                const std::lock_guard lock(mutex_);
                received_.push_back(std::to_string(message.status) + " " + std::to_string(message.data1) + " " +
                                    std::to_string(message.data2));
            }
            arrived_.Add();
            return true;
        });
    }
    std::vector<std::string> Received(int count) {
        EXPECT_TRUE(arrived_.WaitFor(count));
        const std::lock_guard lock(mutex_);
        return received_;
    }
    template <class Ask>
    std::string Said(Ask ask) {
        testing::internal::CaptureStderr();
        ask();
        return testing::internal::GetCapturedStderr();
    }

    ThreeInputs inputs_;
    std::mutex mutex_;
    std::vector<std::string> received_;
    Count arrived_;
    std::optional<MidiMessageDispatcher> dispatcher_{std::in_place};
};

TEST_F(MidiInput, DeliversFromItsStartToItsEnd) {
    EXPECT_EQ(Said([&] { dispatcher_->Start(); }),
              "MidiMessageDispatcher::Start called before ConnectWithSourceIndex\n");
    EXPECT_EQ(Said([&] { EXPECT_EQ(dispatcher_->GetPortIndex(), 0); }),
              "MidiMessageDispatcher::GetPortIndex requested  without connection\n");
    dispatcher_->ConnectWithSourceIndex(2);
    inputs_.Send(2, {0x90, 1, 1});
    dispatcher_->Start();
    inputs_.Send(2, {0x9F, 127, 126});
    inputs_.Send(0, {0x90, 2, 2});
    inputs_[2].Send({0xF0, 0x7D, 0x01, 0xF7});
    inputs_.Send(2, {0xC3, 5, 0});
    EXPECT_THAT(Received(2), ElementsAre("159 127 126", "195 5 0"));
    EXPECT_EQ(dispatcher_->GetPortIndex(), 2);

    dispatcher_->Disconnect();
    EXPECT_FALSE(dispatcher_->GetIsConnected());
    EXPECT_EQ(Layer::Instance().GetCounters().openInputs, 0);
    inputs_.Send(2, {0x90, 3, 3});
    EXPECT_EQ(Said([&] { EXPECT_EQ(dispatcher_->GetPortIndex(), 2); }), "");
    dispatcher_->Disconnect();
    EXPECT_NE(Said([&] { EXPECT_EQ(dispatcher_->GetPortIndex(), 0); }), "");
    EXPECT_EQ(Received(2).size(), 2u);
}

TEST_F(MidiInput, StaysWhereTheNextOneCannotBeOpened) {
    dispatcher_->ConnectWithSourceIndex(0);
    dispatcher_->Start();
    Layer::Instance().Fail(Fault::kInputOpen, MMSYSERR_ALLOCATED, 1);
    EXPECT_THROW(dispatcher_->ConnectWithSourceIndex(2), MidiPortError);
    EXPECT_THROW(dispatcher_->ConnectWithSourceIndex(3), MidiPortError);
    EXPECT_EQ(dispatcher_->GetPortIndex(), 0);
    inputs_.Send(0, {0x90, 1, 1});
    EXPECT_THAT(Received(1), ElementsAre("144 1 1"));
    dispatcher_->ConnectWithSourceIndex(2);
    EXPECT_EQ(Layer::Instance().GetCounters().openInputs, 1);
}

TEST_F(MidiInput, MayBeReplacedByWhatItsMessageSetsOff) {
    MustEnd("a bound function that replaces the input", [&] {
        dispatcher_->ConnectWithSourceIndex(0);
        dispatcher_->Start();
        dispatcher_->SetMidiBinding({0x90, 1}, [&] {
            dispatcher_->ConnectWithSourceIndex(dispatcher_->GetPortIndex() == 0 ? 2 : 0);
            dispatcher_->Start();
            inputs_.Send(dispatcher_->GetPortIndex(), {0xE0, 0, 0});
        });
        for (int turn = 0; turn < 20; ++turn) {
            inputs_.Send(turn % 2 * 2, {0x90, 1, 1});
            Received(2 * turn + 2);
        }
        dispatcher_.reset();
        EXPECT_EQ(Layer::Instance().GetCounters().openInputs, 0);
    });
}

TEST_F(MidiInput, LogsWhatItsMessageSetsOffAndGoesOn) {
    ExceptionCapture log;
    dispatcher_->ConnectWithSourceIndex(0);
    dispatcher_->Start();
    dispatcher_->SetMidiBinding({0x90, 1}, [] { throw std::runtime_error("broken"); });
    dispatcher_->SetMidiBinding({0x90, 2}, [] { throw 7; });
    for (const std::uint8_t data1 : {1, 2, 3})
        inputs_.Send(0, {0x90, data1, 1});
    Received(3);
    dispatcher_->Disconnect();
    EXPECT_THAT(log.Take(),
                ElementsAre("midi/win32/midi_input_win32: broken", "midi/win32/midi_input_win32: Unknown exception."));
    EXPECT_EQ(log.GetLine(), 49);
}

}  // namespace
