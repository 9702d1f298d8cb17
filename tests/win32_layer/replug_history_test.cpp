#include "win32_layer/Sources/real_devices/replug_history.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using win32_layer::ReplugHistory;

/// A history of sound cards whose nodes the test has in hand.
class ReplugHistoryTest : public testing::Test {
protected:
    using Names = std::vector<std::string>;

    std::map<unsigned int, std::uint64_t> nodes_;
    ReplugHistory history_{[this](unsigned int card) -> std::optional<std::uint64_t> {
        const auto node = nodes_.find(card);
        return node == nodes_.end() ? std::nullopt : std::optional(node->second);
    }};
};

TEST_F(ReplugHistoryTest, ADeviceOnANewNodeIsLeftOutOnce) {
    const Names names = {"Synth:Synth MIDI 1 20:0", "Synth:Synth MIDI 2 20:1", "Keys:Keys MIDI 1 24:0"};
    nodes_ = {{1, 500}, {2, 510}};
    EXPECT_THAT(history_.TakeReplugged(names), IsEmpty()) << "at the first look";
    EXPECT_THAT(history_.TakeReplugged(names), IsEmpty());
    nodes_[1] = 520;
    EXPECT_THAT(history_.TakeReplugged(names), ElementsAre("Synth:Synth MIDI 1 20:0", "Synth:Synth MIDI 2 20:1"));
    EXPECT_THAT(history_.TakeReplugged(names), IsEmpty());
}

TEST_F(ReplugHistoryTest, WhatWasSeenToBeAwayIsNotLeftOutAgain) {
    nodes_ = {{0, 500}};
    history_.TakeReplugged({"Synth:Synth MIDI 1 16:0"});
    history_.TakeReplugged({});
    nodes_ = {{0, 520}};
    EXPECT_THAT(history_.TakeReplugged({"Synth:Synth MIDI 1 16:0"}), IsEmpty());
    EXPECT_THAT(history_.TakeReplugged({"Other:Other MIDI 1 16:0"}), IsEmpty()) << "another in its place";
}

TEST_F(ReplugHistoryTest, ANodeThatIsNotThereAtALookIsComparedWithTheNext) {
    const Names names = {"Synth:Synth MIDI 1 19:0"};
    nodes_ = {{0, 500}};
    history_.TakeReplugged(names);
    nodes_.clear();
    EXPECT_THAT(history_.TakeReplugged(names), IsEmpty());
    nodes_ = {{0, 520}};
    EXPECT_EQ(history_.TakeReplugged(names), names);
}

TEST(ReplugHistory, OnlyTheKernelsClientsForCardsHaveANode) {
    const struct {
        const char* name;
        std::vector<unsigned int> cards;
    } rows[] = {{"Midi Through:Midi Through Port-0 14:0", {}},
                {"Timer:Timer 15:0", {}},
                {"Synth:Synth MIDI 1 16:0", {0}},
                {"Synth:Synth MIDI 1 19:0", {0}},
                {"Synth:Synth MIDI 1 20:0", {1}},
                {"Synth:Synth MIDI 1 127:3", {27}},
                {"Sampler:in 128:0", {}},
                {"Sampler:20", {}},
                {"Sampler:in 20", {}},
                {"", {}}};
    for (const auto& [name, cards] : rows) {
        std::vector<unsigned int> asked;
        ReplugHistory history([&asked](unsigned int card) {
            asked.push_back(card);
            return std::optional<std::uint64_t>();
        });
        history.TakeReplugged({name});
        EXPECT_EQ(asked, cards) << name;
    }
}

}  // namespace
