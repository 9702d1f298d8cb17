// An instrument that is unplugged and plugged in again while a show plays.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "player/midi_file_import.h"
#include "tests/player/offline_show.h"
#include "tests/player/song_generator.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {
namespace {

using win32_layer::Layer;

constexpr int kUnplugs = 100;

/// In the place of the show's device; it lacks what was sent while it was unplugged.
class Instrument : public win32_layer::VirtualMidiOutput {
public:
    Instrument() : VirtualMidiOutput(L"Receiver") {}
    void Play(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds) override {
        for (Receiver* receiver : {&obedient, &deaf})
            receiver->Take({bytes[0], bytes[1], count > 2 ? bytes[2] : std::uint8_t{0}});
    }

    Receiver obedient{true};
    Receiver deaf{false};
};

// Without data entry and selectors, whose order counts: a device has them once for all
// parameters (see DeviceState's test).
std::map<int, int> ControllersOf(const Receiver::Channel& channel) {
    auto controllers = channel.controllers;
    for (const int number : {6, 38, 96, 97, 98, 99, 100, 101})
        controllers.erase(number);
    return controllers;
}

std::string Difference(const Receiver& held, const Receiver& wanted) {
    std::string found = held.WhatSounds() == wanted.WhatSounds()
                            ? ""
                            : "sounds " + held.WhatSounds() + "instead of " + wanted.WhatSounds();
    for (std::size_t channel = 0; channel < 16; ++channel) {
        const auto& one = held[channel];
        const auto& other = wanted[channel];
        if (ControllersOf(one) != ControllersOf(other) || one.program != other.program || one.bend != other.bend)
            found += " controllers, program or bend of channel " + std::to_string(channel);
    }
    return found;
}

TEST(UnpluggedOutput, AHundredUnplugsInMidSongLeaveTheStateRightOneClockAfterTheReturn) {
    SongGenerator::Options options;
    options.smpte = false;
    options.quarters = 90;
    options.mostChannels = 6;
    options.eventsPerChannel = 500;
    auto song = ImportMidiFile(SongGenerator(3, options).Next(), 1);
    std::mt19937 random(11);
    std::shared_ptr<Instrument> plugged;
    int returns = 0;
    int checks = 0;
    std::uint64_t next = 8;
    OfflineShow show({song}, [&](OfflineShow& running, std::uint32_t tick) {
        Layer& layer = Layer::Instance();
        if (plugged && !layer.IsOutputLost(0) && returns > 0) {
            ++checks;
            // The one that has heard all and obeys is right for both: to the other it was told note by note.
            for (const Receiver* heard : {&plugged->obedient, &plugged->deaf})
                EXPECT_EQ(Difference(*heard, running.Obedient()), "") << "return " << returns << ", tick " << tick;
        }
        if (running.GetClock() < next || returns == kUnplugs)
            return;
        next = running.GetClock() + 1 + random() % 10;
        if (!layer.IsOutputLost(0)) {
            layer.RemoveOutput(layer.GetOutputs()[0]);
            running.Do("hold off");  // behind what the observer has posted
            return;
        }
        // Half of them kept their power, and with it what they held.
        if (!plugged || random() % 2 == 0)
            plugged = std::make_shared<Instrument>();
        EXPECT_TRUE(layer.AddOutput(plugged));
        ++returns;
        running.Do("hold off");
    });
    Layer::Instance().SetOutputObserver([&show](std::size_t, win32_layer::OutputChange change) {
        if (change == win32_layer::OutputChange::kLost)
            show.GetTransport().PostOutputLoss();
        else
            show.GetTransport().PostOutputReturn();
    });
    EXPECT_EQ(show.Run(), TransportState::kEnded);
    Layer::Instance().SetOutputObserver({});
    EXPECT_EQ(returns, kUnplugs);
    EXPECT_GT(checks, kUnplugs);
    EXPECT_EQ(plugged->deaf.WhatSounds(), "");
    std::uint32_t tick = 0;
    for (const PlaybackRecord& record : show.TakeRecords())
        if (record.kind == PlaybackRecord::Kind::kClock) {
            EXPECT_TRUE(record.tick == tick || tick == 0) << "a clock is lost before tick " << record.tick;
            tick = record.tick + song.song.GetResolution() / 24;
        }
    EXPECT_GT(tick, 1000u);
}

}  // namespace
}  // namespace player
