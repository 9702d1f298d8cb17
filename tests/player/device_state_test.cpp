#include "player/device_state.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace player {
namespace {

/// What a device that was just switched on is told of channel 3, which heard the messages.
std::string StateAfter(const std::vector<std_midi::VoiceMessage>& messages) {
    DeviceState state;
    for (std_midi::VoiceMessage message : messages) {
        message.status |= 3;
        state.Apply(message);
    }
    std::vector<vemo_midi::VoiceEvent> events;
    state.AppendState(3, events);
    std::string told;
    for (const auto& [time, message] : events) {
        EXPECT_EQ(message.status & 0x0F, 3);
        told += (message.status & 0xF0) == 0xB0 ? "" : message.status >> 4 == 0xD ? "pressure " : "other ";
        told += std::to_string(message.data1) + "=" + std::to_string(message.data2) + " ";
    }
    return told;
}

TEST(DeviceState, DataEntryIsToldForItsRegisteredParameterAndThenTheSelectionThatTheDeviceHolds) {
    // Bend range 12, nothing selected; in ascending order the 12 would go nowhere.
    EXPECT_EQ(
        StateAfter({{0xB0, 101, 0}, {0xB0, 100, 0}, {0xB0, 6, 12}, {0xB0, 101, 127}, {0xB0, 100, 127}, {0xB0, 7, 90}}),
        "7=90 101=0 100=0 6=12 101=127 100=127 ");
    // Both tunings in either order of their parts, and data of no parameter that is kept; steps are no state.
    EXPECT_EQ(StateAfter({{0xB0, 6, 1},
                          {0xB0, 101, 0},
                          {0xB0, 100, 2},
                          {0xB0, 6, 65},
                          {0xB0, 38, 3},
                          {0xB0, 100, 1},
                          {0xB0, 38, 5},
                          {0xB0, 6, 64},
                          {0xB0, 100, 5},
                          {0xB0, 6, 7},
                          {0xB0, 96, 0},
                          {0xB0, 99, 1},
                          {0xB0, 98, 8},
                          {0xB0, 6, 99}}),
              "101=0 100=1 38=5 6=64 101=0 100=2 6=65 38=3 99=1 98=8 ");
}

TEST(DeviceState, TheLastPressureIsToldAndNoneAfterAReset) {
    EXPECT_EQ(StateAfter({{0xB0, 121, 0}}), "");
    EXPECT_EQ(StateAfter({{0xD0, 50, 0}, {0xD0, 70, 0}}), "pressure 70=0 ");
    EXPECT_EQ(StateAfter({{0xD0, 70, 0}, {0xB0, 121, 0}}), "pressure 0=0 ");
}

}  // namespace
}  // namespace player
