#include "midi/midi_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "tests/midi/patience.h"
#include "vemo_core/callback_dispatcher.h"

using namespace std::chrono_literals;

namespace {

std::unique_ptr<MidiBuffer> Buffer(std::uint8_t ports = 2) {
    return std::unique_ptr<MidiBuffer>(CreateMidiBuffer(ports, 1200, "Cycle"));
}

TEST(MidiBuffer, AnUnfilledCycleIsGivenUpAfterOneSecond) {
    const auto buffer = Buffer();
    buffer->SetIsLastBuffer(false);  // hands nothing over
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(buffer->WaitUntilReadyForOutput());
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, 1s);
    EXPECT_LT(waited, 10s);
    buffer->SetIsLastBuffer(true);
    EXPECT_TRUE(buffer->WaitUntilReadyForOutput());
}

TEST(MidiBuffer, CyclesPassBetweenFillerAndPlayerOneByOneAndInOrder) {
    const auto buffer = Buffer();
    int disorder = 0;
    MustEnd("hand-over of cycles", [&] {
        std::thread filler([&] {
            for (std::uint32_t tick = 1; tick <= 2000; ++tick) {
                buffer->WaitUntilNeedsData();
                buffer->Reset();
                buffer->SetTickIndex(tick);
                buffer->SetHasData(true);
            }
        });
        for (std::uint32_t tick = 1; tick <= 2000; ++tick) {
            const bool ready = buffer->WaitUntilReadyForOutput();
            disorder += !ready || buffer->GetTickIndex() != tick;
            buffer->SetHasData(false);
        }
        filler.join();
    });
    EXPECT_EQ(disorder, 0);
}

TEST(MidiBuffer, TheLastProgramOfEachChannelIsReportedAndNothingWithoutOne) {
    using Programs = std::map<std::uint16_t, std::uint8_t>;
    const auto buffer = Buffer();
    std::vector<Programs> reports;
    notify::callbackDispatcher.AddCallback(notify::names::currentProgramIds, &reports, [&](const void* payload) {
        reports.push_back(*static_cast<const Programs*>(payload));
    });
    buffer->AddEventToBuffer(1, {0, 0x90, 3, 60, 100});
    buffer->SendProgramChanges();
    EXPECT_TRUE(reports.empty());

    buffer->AddEventToBuffer(1, {0, 0xC0, 3, 5, 0});
    buffer->AddEventToBuffer(0, {0, 0xC0, 15, 1, 0});
    buffer->AddEventToBuffer(1, {0, 0xC0, 3, 9, 0});
    buffer->SendProgramChanges();
    EXPECT_THAT(reports, testing::ElementsAre(Programs{{0x000F, 1}, {0x0103, 9}}));
    buffer->Reset();
    buffer->SendProgramChanges();
    EXPECT_EQ(reports.size(), 1u);
    notify::callbackDispatcher.RemoveCallbacksForTarget(&reports);
}

}  // namespace
