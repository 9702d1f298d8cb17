#include "midi/midi_message_dispatcher.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/midi/patience.h"
#include "tests/midi/three_inputs.h"
#include "vemo_core/gui_dispatcher.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Key = MidiMessageDispatcher::Key;

class MidiBindings : public testing::Test {
protected:
    MidiBindings() {
        notify::GuiDispatcher::Receiver receiver;
        receiver.midiActivity = [this] { ++activity_; };
        notify::guiDispatcher.SetReceiver(std::move(receiver));
        dispatcher_.SetForwardingFunction([this](const std::vector<MIDIMessage>& packet) { packet_ = packet; });
    }
    ~MidiBindings() override { notify::guiDispatcher.SetReceiver({}); }

    std::function<void()> Log(const std::string& text) {
        return [this, text] { log_.push_back(text); };
    }
    std::function<void(Key)> LogKey(const std::string& text) {
        return [this, text](Key key) {
            log_.push_back(text + " " + std::to_string(key.first) + " " + std::to_string(key.second));
        };
    }
    /// What the message sets off, "packet" where it is only forwarded.
    std::vector<std::string> Process(const MIDIMessage& message) {
        log_.clear();
        dispatcher_.PacketStart();
        dispatcher_.ProcessMessage(message);
        dispatcher_.PacketEnd();
        for (const MIDIMessage& forwarded : packet_)
            log_.push_back(forwarded.status == message.status && forwarded.data1 == message.data1 &&
                                   forwarded.data2 == message.data2
                               ? "packet"
                               : "another message");
        return log_;
    }

    MidiMessageDispatcher dispatcher_;
    std::vector<std::string> log_;
    std::vector<MIDIMessage> packet_;
    int activity_ = 0;
};

TEST_F(MidiBindings, BelongToAChannelAndANumberAndNotToAValue) {
    for (const Key& key : {Key{0x93, 60}, {0xB0, 7}, {0xCF, 5}, {0x83, 60}, {0xE0, 0}, {0xD0, 1}, {0xF8, 0}})
        dispatcher_.SetMidiBinding(key, Log("fired"));
    const struct {
        MIDIMessage message;
        const char* expected;
    } rows[] = {
        {{0x93, 60, 1}, "fired"},  {{0x93, 60, 127}, "fired"}, {{0x93, 60, 0}, "packet"},  {{0x92, 60, 1}, "packet"},
        {{0x93, 61, 1}, "packet"}, {{0xB0, 7, 0}, "fired"},    {{0xB0, 7, 127}, "fired"},  {{0xB1, 7, 0}, "packet"},
        {{0xCF, 5, 0}, "fired"},   {{0xC0, 5, 0}, "packet"},   {{0x83, 60, 64}, "packet"}, {{0xE0, 0, 64}, "packet"},
        {{0xD0, 1, 0}, "packet"},  {{0xF8, 0, 0}, "packet"},   {{0xFE, 0, 0}, "packet"},   {{0xA0, 60, 1}, "packet"},
    };
    int processed = 0;
    for (const auto& row : rows) {
        EXPECT_THAT(Process(row.message), ElementsAre(row.expected))
            << std::hex << +row.message.status << " " << +row.message.data1 << " " << +row.message.data2;
        EXPECT_EQ(activity_, ++processed);
    }
    dispatcher_.SetMidiBinding({0xB0, 7}, Log("another"));
    EXPECT_THAT(Process({0xB0, 7, 1}), ElementsAre("another"));
    dispatcher_.RemoveMidiBinding({0xB0, 7});
    dispatcher_.RemoveMidiBinding({0xB0, 8});
    EXPECT_THAT(Process({0xB0, 7, 1}), ElementsAre("packet"));
}

TEST_F(MidiBindings, AreLearnedFromTheNextMessagesInTheOrderOfTheRequests) {
    dispatcher_.SetMidiBinding({0x90, 60}, Log("old"));
    dispatcher_.LearnMidiBinding(Log("new"), LogKey("first"));
    dispatcher_.LearnMidiBindingNoAssign(LogKey("second"));

    EXPECT_THAT(Process({0x90, 60, 0}), ElementsAre("packet"));
    EXPECT_THAT(Process({0xE0, 1, 1}), ElementsAre("packet"));
    EXPECT_TRUE(dispatcher_.IsLearning());
    EXPECT_THAT(Process({0x90, 60, 1}), ElementsAre("first 144 60"));
    EXPECT_TRUE(dispatcher_.IsLearning());
    EXPECT_THAT(Process({0x90, 60, 1}), ElementsAre("second 144 60"));
    EXPECT_FALSE(dispatcher_.IsLearning());
    EXPECT_THAT(Process({0x90, 60, 1}), ElementsAre("new"));

    dispatcher_.LearnMidiBindingNoAssign(LogKey("alone"));
    EXPECT_THAT(Process({0xC1, 9, 0}), ElementsAre("alone 193 9"));
    EXPECT_THAT(Process({0xC1, 9, 0}), ElementsAre("packet"));

    dispatcher_.LearnMidiBinding(Log("kept"), {});
    EXPECT_THROW(Process({0xB2, 1, 0}), std::bad_function_call);
    EXPECT_FALSE(dispatcher_.IsLearning());
    EXPECT_THAT(Process({0xB2, 1, 0}), ElementsAre("kept"));
}

// Each of them would wait for ever if the dispatcher's mutex were held meanwhile.
TEST_F(MidiBindings, MayBeChangedByWhatTheyCallAndByWhatEndsWithThem) {
    auto rebindAtEnd = std::shared_ptr<void>(nullptr, [this](void*) { dispatcher_.RemoveMidiBinding({0x90, 2}); });
    dispatcher_.SetMidiBinding({0x90, 2}, Log("two"));
    dispatcher_.SetMidiBinding({0x90, 1}, [this, rebindAtEnd] {
        dispatcher_.LearnMidiBindingNoAssign(
            [this](Key key) { dispatcher_.SetMidiBinding(key, Log(dispatcher_.IsLearning() ? "learning" : "bound")); });
        log_.push_back("asked");
    });
    rebindAtEnd.reset();
    EXPECT_THAT(Process({0x90, 1, 1}), ElementsAre("asked"));
    EXPECT_THAT(Process({0x90, 3, 1}), IsEmpty());
    EXPECT_THAT(Process({0x90, 3, 1}), ElementsAre("bound"));
    EXPECT_THAT(Process({0x90, 2, 1}), ElementsAre("two"));
    dispatcher_.SetMidiBinding({0x90, 1}, Log("one"));
    EXPECT_THAT(Process({0x90, 2, 1}), ElementsAre("packet"));
}

TEST_F(MidiBindings, SeeOnlyWhatTheFilterLetsPass) {
    dispatcher_.SetMidiBinding({0x90, 1}, Log("fired"));
    dispatcher_.SetInputFilter([this](const MIDIMessage& message) {
        log_.push_back("asked after " + std::to_string(activity_));
        return message.GetChannel() == 0;
    });
    EXPECT_THAT(Process({0x90, 1, 1}), ElementsAre("asked after 1", "fired"));
    dispatcher_.LearnMidiBindingNoAssign(LogKey("learned"));
    EXPECT_THAT(Process({0x91, 1, 1}), ElementsAre("asked after 2"));
    EXPECT_THAT(Process({0x80, 1, 1}), ElementsAre("asked after 3", "packet"));
    EXPECT_TRUE(dispatcher_.IsLearning());
    dispatcher_.SetInputFilter({});
    EXPECT_THAT(Process({0x91, 1, 1}), ElementsAre("learned 145 1"));
}

TEST_F(MidiBindings, APacketThatNobodyEndsKeepsTheLatestMessages) {
    const auto send = [this](int count) {
        for (int i = 0; i < count; ++i)
            dispatcher_.ProcessMessage({0x80, static_cast<std::uint8_t>(i & 0x7F), static_cast<std::uint8_t>(i >> 8)});
    };
    send(65536);
    dispatcher_.PacketEnd();
    EXPECT_EQ(packet_.size(), 65536u);
    send(65537);
    dispatcher_.PacketEnd();
    ASSERT_EQ(packet_.size(), 32769u);
    EXPECT_EQ(packet_.front().data2, 0x80);
    EXPECT_EQ(packet_[32767].data2, 0xFF);
    dispatcher_.PacketEnd();
    EXPECT_THAT(packet_, IsEmpty());
    dispatcher_.SetForwardingFunction([&](const auto&) {
        send(50000);
        throw std::runtime_error("broken");
    });
    for (int i = 0; i < 3; ++i)
        EXPECT_THROW(dispatcher_.PacketEnd(), std::runtime_error);
    dispatcher_.SetForwardingFunction([this](const auto& packet) { packet_ = packet; });
    dispatcher_.PacketEnd();
    EXPECT_EQ(packet_.size(), 32768u);
    dispatcher_.SetForwardingFunction({});
    send(1);
    EXPECT_THROW(dispatcher_.PacketEnd(), std::bad_function_call);
    dispatcher_.SetForwardingFunction([this](const auto& packet) { packet_ = packet; });
    dispatcher_.PacketEnd();
    EXPECT_EQ(packet_.size(), 1u) << "what was not passed on stays";
}

TEST_F(MidiBindings, AreListedByStatusAndThenByNumber) {
    dispatcher_.SetMidiBinding({0x90, 61}, Log("a"));
    dispatcher_.SetMidiBinding({0x80, 99}, Log("b"));
    dispatcher_.SetMidiBinding({0x90, 60}, Log("c"));
    std::ostringstream shown;
    dispatcher_.DisplayCallbackMap(shown);
    EXPECT_THAT(shown.str(), testing::MatchesRegex("\tStatus: 128 Data: 99 Callback: 0x[0-9a-f]+\n"
                                                   "\tStatus: 144 Data: 60 Callback: 0x[0-9a-f]+\n"
                                                   "\tStatus: 144 Data: 61 Callback: 0x[0-9a-f]+\n"));
    // The free comparison has another order.
    EXPECT_TRUE(::operator<(Key(0x90, 60), Key(0x80, 99)));
    EXPECT_TRUE(::operator<(Key(0x80, 60), Key(0x90, 60)));
    EXPECT_FALSE(::operator<(Key(0x90, 60), Key(0x90, 60)));
}

TEST(MidiDispatcher, OutlivesAFunctionThatHasReplacedItsOwnInput) {
    MustEnd("a dispatcher that ends during its functions", [] {
        constexpr int kTurns = 20000;  // in which a destructor that does not wait is through
        ThreeInputs inputs;
        auto dispatcher = std::make_unique<MidiMessageDispatcher>();
        Count replaced;
        std::atomic<bool> hasEnded{false};
        dispatcher->SetMidiBinding({0x90, 1}, [&] {
            dispatcher->ConnectWithSourceIndex(2);
            replaced.Add();
            while (win32_layer::Layer::Instance().GetCounters().openInputs > 0)
                std::this_thread::yield();
            for (int turn = 0; turn < kTurns; ++turn)
                std::this_thread::yield();
            hasEnded = true;
        });
        dispatcher->ConnectWithSourceIndex(0);
        dispatcher->Start();
        inputs.Send(0, {0x90, 1, 1});
        ASSERT_TRUE(replaced.WaitFor(1));
        dispatcher.reset();
        EXPECT_TRUE(hasEnded);

        // One that a function ends must not wait for that function.
        dispatcher = std::make_unique<MidiMessageDispatcher>();
        dispatcher->SetMidiBinding({0x90, 1}, [&] { dispatcher.reset(); });
        dispatcher->ProcessMessage({0x90, 1, 1});
        EXPECT_EQ(dispatcher, nullptr);
    });
}

}  // namespace
