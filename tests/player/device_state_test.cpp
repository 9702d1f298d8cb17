#include "player/device_state.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
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

/// Of "number=value" each.
std::vector<std_midi::VoiceMessage> Controllers(const std::string& text) {
    std::vector<std_midi::VoiceMessage> messages;
    std::istringstream words(text);
    char equals = 0;
    for (unsigned number = 0, value = 0; words >> number >> equals >> value;)
        messages.push_back({0xB0, static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(value)});
    return messages;
}

TEST(DeviceState, DataEntryIsToldForItsRegisteredParameterAndThenTheSelectionThatTheDeviceHolds) {
    for (const auto& [controllers, told] : {
             // Bend range 12, nothing selected; in ascending order the 12 would go nowhere.
             std::pair("101=0 100=0 6=12 101=127 100=127 7=90", "7=90 101=0 100=0 6=12 101=127 100=127 "),
             // Both tunings in either order of their parts, and data of no parameter that is kept; steps are no state.
             std::pair("6=1 101=0 100=2 6=65 38=3 100=1 38=5 6=64 100=5 6=7 96=0 99=1 98=8 6=99",
                       "101=0 100=1 38=5 6=64 101=0 100=2 6=65 38=3 99=1 98=8 "),
         })
        EXPECT_EQ(StateAfter(Controllers(controllers)), told);
}

TEST(DeviceState, TheLastPressureIsToldAndNoneAfterAReset) {
    EXPECT_EQ(StateAfter({{0xB0, 121, 0}}), "");
    EXPECT_EQ(StateAfter({{0xD0, 50, 0}, {0xD0, 70, 0}}), "pressure 70=0 ");
    EXPECT_EQ(StateAfter({{0xD0, 70, 0}, {0xB0, 121, 0}}), "pressure 0=0 ");
}

}  // namespace
}  // namespace player
