// Three clients steer a show in real time while the device makes trouble.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "player/midi_file_import.h"
#include "tests/player/offline_show.h"
#include "tests/player/song_generator.h"
#include "win32_layer/layer.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using win32_layer::Fault;
using win32_layer::Layer;

constexpr int kClients = 3;

/// How long: VEMO_SECONDS for a longer search.
std::chrono::seconds Duration() {
    const char* const wanted = std::getenv("VEMO_SECONDS");
    return std::chrono::seconds(wanted ? std::atoi(wanted) : 3);
}

std::shared_ptr<const Show> LongShow() {
    std::vector<ImportedSong> songs;
    for (const unsigned seed : {3u, 4u}) {
        SongGenerator::Options options;
        options.quarters = 2'000;
        options.mostChannels = 8;
        options.eventsPerChannel = 4'000;
        songs.push_back(ImportMidiFile(SongGenerator(seed, options).Next(), 1));
    }
    return ShowOf(songs, ShowKind::kRanges);
}

std::string RandomCommand(std::mt19937& random) {
    static const char* const plain[] = {
        "play",         "play",          "stop",         "pause",          "continue",        "tempo up",
        "tempo down",   "tempo reset",   "transpose up", "transpose down", "transpose reset", "unmute all",
        "next measure", "previous song", "next song",    "resend",         "panic",           "follow programs",
        "hold on",      "hold off",      "skip",         "click on",       "conduct beat",    "gui delay up"};
    const auto number = [&](unsigned most) { return std::to_string(1 + random() % most); };
    switch (random() % 10) {
        case 0: return "mute " + number(16);
        case 1: return "unmute " + number(16);
        case 2: return "trim " + number(16) + " " + number(127);
        case 3: return "program " + number(16) + " " + number(128);
        case 4: return "locate " + number(40);
        case 5: return "insert 1 " + number(3);
        default: return plain[random() % std::size(plain)];
    }
}

struct Posted {
    TransportCommand command;
    std::string text;
    std::future<CommandAnswer> answer;
};

/// What commands set, and time does not.
std::string Settings(const TransportSnapshot& snapshot) {
    std::string text = std::to_string(snapshot.song) + " x" + std::to_string(snapshot.tempoScale) + " t" +
                       std::to_string(snapshot.transposition) + (snapshot.holds ? " held" : "") + " mutes";
    for (const int channel : snapshot.mutes)
        text += " " + std::to_string(channel);
    text += " trims";
    for (const auto& [channel, trim] : snapshot.trims)
        text += " " + std::to_string(channel) + ":" + std::to_string(trim);
    for (const auto& [song, programs] : snapshot.programs)
        for (const auto& [channel, program] : programs)
            text += " " + song + "/" + std::to_string(channel) + ":" + std::to_string(program);
    text += " list";
    for (const TransportSnapshot::Entry& entry : snapshot.setList)
        text += " " + std::to_string(entry.song);
    return text;
}

void MakeTrouble(std::mt19937& random) {
    switch (random() % 4) {
        case 0: Layer::Instance().HoldBuffers(1 + random() % 2); break;
        case 1: Layer::Instance().Fail(Fault::kOut, 6, 1 + random() % 3); break;
        case 2: Layer::Instance().ReleaseHeldBuffers(); break;
        default: break;
    }
}

TEST(SteeredShow, EveryCommandOfThreeClientsIsAnsweredOnceAndTheEndIsThatOfTheirOrder) {
    Layer::Instance().Reset();
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
        L"Stage", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
    Transport::Settings settings;
    settings.show = LongShow();
    CurrentShow current;
    PlaybackFeed feed;
    std::vector<Posted> posted;
    std::string steered;
    {
        Transport transport(settings, current, feed);
        const auto end = std::chrono::steady_clock::now() + Duration();
        std::vector<std::vector<Posted>> own(kClients);
        std::vector<std::thread> clients;
        for (unsigned client = 0; client < kClients; ++client)
            clients.emplace_back([&, client] {
                std::mt19937 random(client + 1);
                while (std::chrono::steady_clock::now() < end) {
                    const std::string text = RandomCommand(random);
                    const TransportCommand command = ParseCommand(text);
                    own[client].push_back({command, text, transport.Post(command)});
                    std::this_thread::sleep_for(std::chrono::microseconds(random() % 40'000));
                }
            });
        std::mt19937 random(9);
        while (std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(200ms);
            MakeTrouble(random);
        }
        for (std::thread& client : clients)
            client.join();
        Layer::Instance().Fail(Fault::kOut, 6, 0);
        Layer::Instance().ReleaseHeldBuffers();
        for (std::vector<Posted>& some : own)
            std::move(some.begin(), some.end(), std::back_inserter(posted));
        auto last = transport.Post(ParseCommand("stop"));
        // A buffer that never comes back costs three seconds each time.
        ASSERT_EQ(last.wait_for(60s), std::future_status::ready);
        EXPECT_TRUE(last.get().done);
        steered = Settings(*transport.GetSnapshot());
    }
    struct Carried {
        std::uint64_t number;
        const Posted* posted;
        CommandAnswer answer;
    };
    std::vector<Carried> order;
    for (Posted& one : posted) {
        ASSERT_EQ(one.answer.wait_for(0s), std::future_status::ready) << one.text;
        const CommandAnswer answer = one.answer.get();
        EXPECT_TRUE(answer.done || !answer.message.empty()) << one.text;
        if (answer.number > 0)
            order.push_back({answer.number, &one, answer});
    }
    std::ranges::sort(order, {}, &Carried::number);
    ASSERT_GT(order.size(), 20u);

    Layer::Instance().Reset();
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
        L"Stage", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
    {
        Transport transport(settings, current, feed);
        for (const Carried& one : order)
            transport.Post(one.posted->command).get();
        EXPECT_EQ(Settings(*transport.GetSnapshot()), steered);
    }
    Layer::Instance().Reset();
    EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
}

}  // namespace
}  // namespace player
