#include "player/midi_input.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/midi/patience.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"

namespace player {
namespace {

TEST(PlayerMidiInput, CountsWhatAFloodHasDroppedOncePerGap) {
    constexpr std::size_t kMostWaiting = 256 * 1024;
    const auto keys = std::make_shared<win32_layer::VirtualMidiInput>(L"Keys");
    win32_layer::Layer::Instance().Reset();
    win32_layer::Layer::Instance().AddInput(keys);
    {
        Door door;
        const MidiInput input(0, [&](const std::uint8_t*, std::size_t, double) { door.Pass(); });
        keys->Send({0xFA});
        ASSERT_TRUE(door.WaitForArrival());
        keys->Send(std::vector<std::uint8_t>(kMostWaiting, 1));  // data without a status is no message
        keys->Send({0x90, 60, 64});
        keys->Send({0x80, 60, 64});
        EXPECT_EQ(input.GetLosses(), 0u);
        door.Open();
        EXPECT_TRUE(WaitUntil([&] { return input.GetLosses() > 0; }));
        EXPECT_EQ(input.GetLosses(), 1u);
        EXPECT_EQ(input.GetDiscarded(), 0u);
    }
    win32_layer::Layer::Instance().Reset();
}

}  // namespace
}  // namespace player
