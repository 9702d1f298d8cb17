#include "player/transport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "midi/midi_device_unavailable.h"
#include "tests/midi/patience.h"
#include "tests/player/offline_show.h"
#include "win32_layer/layer.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using win32_layer::Fault;
using win32_layer::Layer;

bool IsAnswered(std::future<CommandAnswer>& answer) {
    return answer.wait_for(20s) == std::future_status::ready;
}

TEST(Transport, RefusesWhatTheStateForbidsAndSaysWhy) {
    struct Row {
        std::string command, answer;
    };
    const Row standing[] = {
        {"stop", ""},
        {"select song 2", "there is no song '2'; there are 1 to 1"},
        {"locate 3", "'One' has no beat 3:1; its last is 2:4"},
        {"locate 2:5", "'One' has no beat 2:5; its last is 2:4"},
        {"mute 2", "no track plays on channel 2"},
        {"panic", ""},
    };
    {
        OfflineShow show({SongOfBeats("One", 8)}, [done = false](OfflineShow& running, std::uint32_t) mutable {
            if (std::exchange(done, true))
                return;
            EXPECT_EQ(running.Do("play").message, "play is not possible while playing");
        });
        for (const Row& row : standing)
            EXPECT_EQ(show.Do(row.command).message, row.answer) << row.command;
        EXPECT_EQ(show.Run(), TransportState::kEnded);
    }
    const Row empty[] = {{"play", "play is not possible while empty"},
                         {"stop", "stop is not possible while empty"},
                         {"locate 1", "locate is not possible while empty"},
                         {"tempo 2", ""},
                         {"panic", ""}};
    OfflineShow nothing({});
    for (const Row& row : empty)
        EXPECT_EQ(nothing.Do(row.command).message, row.answer) << row.command;
    EXPECT_EQ(nothing.GetTransport().GetSnapshot()->state, TransportState::kEmpty);
}

TEST(Transport, AnswersEveryCommandOfThreeThreadsAlsoWhenItIsDestroyedBeforeTheirTurn) {
    constexpr int kPosts = 60;
    const char* const commands[] = {"play", "locate 2", "transpose 3", "mute 1", "stop", "unmute 1", "tempo 1.5"};
    std::vector<std::future<CommandAnswer>> answers[3];
    std::promise<void> reached, release;
    {
        OfflineShow show({SongOfBeats("One", 16)});
        // The device holds the transport while the others post.
        Layer::Instance().SetObserver([&, held = false](const std::uint8_t*, std::size_t, auto) mutable {
            if (std::exchange(held, true))
                return;
            reached.set_value();
            release.get_future().wait();
        });
        auto stop = show.GetTransport().Post(ParseCommand("stop"));
        reached.get_future().wait();
        std::vector<std::thread> posters;
        for (auto& own : answers)
            posters.emplace_back([&] {
                for (int i = 0; i < kPosts; ++i)
                    own.push_back(show.GetTransport().Post(ParseCommand(commands[i % std::size(commands)])));
            });
        for (std::thread& poster : posters)
            poster.join();
        release.set_value();
        EXPECT_TRUE(IsAnswered(stop));
    }
    int unanswered = 0;
    for (auto& own : answers)
        for (auto& answer : own) {
            ASSERT_TRUE(IsAnswered(answer));
            try {
                const CommandAnswer got = answer.get();
                EXPECT_TRUE(got.done || !got.message.empty());
            } catch (const std::future_error&) {
                ++unanswered;
            }
        }
    EXPECT_EQ(unanswered, 0);
}

TEST(Transport, ADeviceThatRefusesToOpenIsReported) {
    Layer::Instance().Reset();
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(L"Taken"));
    Layer::Instance().Fail(Fault::kOpen, 4, 1);  // allocated
    CurrentShow show;
    PlaybackFeed feed;
    EXPECT_THROW(Transport({}, show, feed), MidiDeviceUnavailable);
    EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
    Layer::Instance().Reset();
}

TEST(Transport, ADeviceThatTakesNothingMoreEndsInAFaultAndHoldsNothingUp) {
    OfflineShow show({SongOfBeats("One", 32)}, [done = false](OfflineShow& running, std::uint32_t tick) mutable {
        if (tick < 4 * 96 || std::exchange(done, true))
            return;
        Layer::Instance().Fail(Fault::kOut, 6, 1'000'000);  // no driver
        running.GetTransport().PostFault("the output is lost");
    });
    ASSERT_EQ(show.Run(), TransportState::kFault);
    const auto snapshot = show.GetTransport().GetSnapshot();
    ASSERT_FALSE(snapshot->messages.empty());
    EXPECT_EQ(snapshot->messages.front().text, "the output is lost");
    EXPECT_EQ(show.Do("play").message, "play is not possible while fault");
}

TEST(Transport, ABufferThatNeverReturnsCostsSecondsAndNotTheShow) {
    Layer::Instance().Reset();
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(L"Slow"));
    CurrentShow show;
    PlaybackFeed feed;
    {
        Transport::Settings settings;
        settings.tempoScale = 2;
        settings.show = ShowOf({SongOfBeats("One", 4)});
        Transport transport(settings, show, feed);
        Layer::Instance().HoldBuffers(1);
        ASSERT_TRUE(transport.Post(ParseCommand("play")).get().done);
        WaitUntil([&] { return transport.GetSnapshot()->state != TransportState::kPlaying; });
        EXPECT_EQ(transport.GetSnapshot()->state, TransportState::kEnded);
    }
    Layer::Instance().Reset();
    EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
}

}  // namespace
}  // namespace player
