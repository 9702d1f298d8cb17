#include "player/device_state.h"

#include <gtest/gtest.h>

#include <vector>

namespace player {
namespace {

using vemo_midi::VoiceEvent;

TEST(DeviceState, EndsANoteAsOftenAsItWasStruckAndNoOther) {
    DeviceState state;
    for (const std_midi::VoiceMessage& message : {std_midi::VoiceMessage{0x93, 60, 90},
                                                  {0x93, 60, 80},
                                                  {0x93, 127, 1},
                                                  {0x83, 127, 0},
                                                  {0x83, 0, 64},
                                                  {0x94, 0, 90},
                                                  {0xB3, 123, 0},
                                                  {0xB3, 120, 0}})
        state.Apply(message);
    std::vector<VoiceEvent> offs;
    state.AppendNoteOffs(3, offs);
    EXPECT_EQ(offs, (std::vector<VoiceEvent>{{0, 0x80, 3, 60, 64}, {0, 0x80, 3, 60, 64}}));
    for (const VoiceEvent& off : offs)
        state.Apply(off.message);
    offs.clear();
    state.AppendNoteOffs(3, offs);
    EXPECT_TRUE(offs.empty());
    state.AppendNoteOffs(4, offs);
    EXPECT_EQ(offs, (std::vector<VoiceEvent>{{0, 0x80, 4, 0, 64}}));
}

TEST(DeviceState, LiftsThePedalsThatAreDown) {
    DeviceState state;
    for (const std_midi::VoiceMessage& message :
         {std_midi::VoiceMessage{0xBF, 64, 127}, {0xBF, 66, 0}, {0xBF, 69, 1}, {0xBF, 67, 127}, {0xB0, 64, 127}})
        state.Apply(message);
    std::vector<VoiceEvent> up;
    state.AppendPedalsUp(15, up);
    EXPECT_EQ(up, (std::vector<VoiceEvent>{{0, 0xB0, 15, 64, 0}, {0, 0xB0, 15, 69, 0}}));
}

TEST(DeviceState, KnowsOnlyWhatWasSent) {
    DeviceState state;
    EXPECT_EQ(state.GetController(0, 7), DeviceState::kUnknown);
    EXPECT_EQ(state.GetProgram(0), DeviceState::kUnknown);
    state.Apply({0xB0, 119, 0});
    state.Apply({0xB0, 120, 5});  // no state
    state.Apply({0xC0, 0, 0});
    EXPECT_EQ(state.GetController(0, 119), 0);
    EXPECT_EQ(state.GetController(0, 7), DeviceState::kUnknown);
    EXPECT_EQ(state.GetProgram(0), 0);
}

}  // namespace
}  // namespace player
