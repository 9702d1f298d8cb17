#include "midi/midi_buffer.h"

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <vector>

#include "vemo_core/callback_dispatcher.h"

namespace {

std::unique_ptr<MidiBuffer> Buffer(std::uint8_t ports = 2) {
    return std::unique_ptr<MidiBuffer>(CreateMidiBuffer(ports, 1200, "Cycle"));
}

TEST(MidiBuffer, OnlyTheLastCycleIsReadyByBeingMarked) {
    const auto buffer = Buffer();
    buffer->SetIsLastBuffer(false);  // hands nothing over
    EXPECT_FALSE(buffer->WaitUntilReadyForOutput());
    buffer->SetIsLastBuffer(true);
    EXPECT_TRUE(buffer->WaitUntilReadyForOutput());
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
