#include "player/midi_input.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"

namespace player {
namespace {

using namespace std::chrono_literals;

TEST(PlayerMidiInput, CountsWhatAFloodHasDroppedOncePerGap) {
    constexpr std::size_t kMostWaiting = 256 * 1024;
    const auto keys = std::make_shared<win32_layer::VirtualMidiInput>(L"Keys");
    win32_layer::Layer::Instance().Reset();
    win32_layer::Layer::Instance().AddInput(keys);
    {
        std::promise<void> entered, door;
        const MidiInput input(0, [&](const std::uint8_t*, std::size_t, double) {
            entered.set_value();
            door.get_future().wait();
        });
        keys->Send({0xFA});
        entered.get_future().wait();
        keys->Send(std::vector<std::uint8_t>(kMostWaiting, 1));  // data without a status is no message
        keys->Send({0x90, 60, 64});
        keys->Send({0x80, 60, 64});
        EXPECT_EQ(input.GetLosses(), 0u);
        door.set_value();
        for (const auto start = std::chrono::steady_clock::now();
             input.GetLosses() == 0 && std::chrono::steady_clock::now() - start < 20s;)
            std::this_thread::yield();
        EXPECT_EQ(input.GetLosses(), 1u);
        EXPECT_EQ(input.GetDiscarded(), 0u);
    }
    win32_layer::Layer::Instance().Reset();
}

}  // namespace
}  // namespace player
