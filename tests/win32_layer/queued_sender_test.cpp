#include "win32_layer/Sources/real_devices/queued_sender.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using win32_layer::MessagePort;
using win32_layer::QueuedSender;

using Bytes = std::vector<std::uint8_t>;

/// Takes pieces of 100 bytes; so many of more than 4 bytes, and so many of fewer before it
/// refuses one of those.
class SlowPort : public MessagePort {
public:
    std::size_t GetLongestPiece() const override { return 100; }
    bool IsConnected() const override { return isConnected; }
    bool IsReadyFor(std::size_t count) override { return count > 4 ? longOnes-- > 0 : shortOnes-- != 0; }
    bool HasLeft() const override { return true; }
    std::string Send(const std::uint8_t* bytes, std::size_t count) override {
        sent.emplace_back(bytes, bytes + count);
        return {};
    }

    bool isConnected = true;
    int longOnes = 1000;
    int shortOnes = 1000;
    std::vector<Bytes> sent;
};

Bytes Dump(std::size_t bytes) {
    Bytes dump(bytes, 1);
    dump.front() = 0xF0;
    dump.back() = 0xF7;
    return dump;
}

class QueuedSenderTest : public testing::Test {
protected:
    /// Closes with no time left, and sends what the port takes at once.
    void CloseAndRun(const std::vector<Bytes>& messages) {
        for (const Bytes& message : messages)
            sender_.Add(message.data(), message.size());
        sender_.Close(std::chrono::steady_clock::time_point{});
        sender_.Run(port_);
    }

    SlowPort port_;
    std::vector<std::string> said_;
    QueuedSender sender_{"Synth", [this](const std::string& text) { said_.push_back(text); }};
};

TEST_F(QueuedSenderTest, WhatThePortTakesAtOnceIsSentWholeAndInOrder) {
    CloseAndRun({{0x90, 60, 64}, Dump(201), {0x80, 60, 0}});
    ASSERT_EQ(port_.sent.size(), 5u);
    EXPECT_EQ(port_.sent[1].front(), 0xF0);
    EXPECT_EQ(port_.sent[2].size(), 100u);
    EXPECT_THAT(port_.sent[3], ElementsAre(0xF7));
    EXPECT_THAT(port_.sent[4], ElementsAre(0x80, 60, 0));
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(QueuedSenderTest, ADumpThatIsCutIsEndedAndTheNotesBehindItAreEndedToo) {
    port_.longOnes = 1;
    CloseAndRun({Dump(250), {0x80, 60, 0}, Dump(50), {0xF0, 1, 2}, {3, 4, 0xF7}, {0xF7}, {0xF0, 5, 6, 0xF7}, {0xF8}});
    ASSERT_EQ(port_.sent.size(), 5u);
    EXPECT_EQ(port_.sent[0].size(), 100u);
    EXPECT_THAT(port_.sent[1], ElementsAre(0xF7));
    EXPECT_THAT(port_.sent[2], ElementsAre(0x80, 60, 0));
    EXPECT_THAT(port_.sent[3], ElementsAre(0xF0, 5, 6, 0xF7));
    EXPECT_THAT(port_.sent[4], ElementsAre(0xF8));
    EXPECT_THAT(said_, ElementsAre("MIDI output 'Synth' was closed too soon for it: 5 messages not sent"));
}

TEST_F(QueuedSenderTest, NothingIsSaidWhereTheShortOnesLeaveInTheEnd) {
    port_.shortOnes = 1;
    CloseAndRun({{0x80, 60, 0}, {0x80, 61, 0}});
    EXPECT_EQ(port_.sent.size(), 2u);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(QueuedSenderTest, ADumpInSeveralBuffersIsEndedWhereItIsCut) {
    port_.longOnes = 2;
    Bytes middle(200, 1);
    CloseAndRun({{0xF0, 1, 2, 3, 4}, {0xF8}, middle});
    ASSERT_EQ(port_.sent.size(), 4u);
    EXPECT_THAT(port_.sent[3], ElementsAre(0xF7));
}

TEST_F(QueuedSenderTest, NothingIsSentBehindAMessageThatWasLeft) {
    port_.longOnes = 0;
    port_.shortOnes = 1;
    CloseAndRun({Dump(300'000), Dump(50), {0x80, 60, 0}, {0x80, 61, 0}, {0x90, 62, 64}});
    EXPECT_THAT(port_.sent, ElementsAre(ElementsAre(0x80, 60, 0)));
    EXPECT_THAT(said_, ElementsAre("MIDI output 'Synth' takes no more: what is sent to it is lost",
                                   "MIDI output 'Synth' was closed too soon for it: 4 messages not sent"))
        << "with the one that the queue refused";
}

TEST_F(QueuedSenderTest, ADeviceThatHasGoneIsNotComplainedOf) {
    port_.isConnected = false;
    CloseAndRun({{0x90, 60, 64}, Dump(50)});
    EXPECT_THAT(port_.sent, IsEmpty());
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(QueuedSenderTest, WhatAFullQueueRefusesIsCountedOnceTheQueueIsEmpty) {
    port_.longOnes = 9999;
    const Bytes dump = Dump(100'000);
    CloseAndRun({dump, dump, dump, {0x90, 60, 64}, dump});
    EXPECT_EQ(port_.sent.size(), 2001u);
    EXPECT_THAT(said_, ElementsAre("MIDI output 'Synth' takes no more: what is sent to it is lost",
                                   "MIDI output 'Synth' takes messages again; 2 were lost"));
}

}  // namespace
