#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "midi/midi_time_code.h"
#include "player/output_devices.h"
#include "player/time_code_control.h"
#include "player/time_code_port.h"
#include "player/time_code_reader.h"
#include "tests/midi/patience.h"
#include "tests/player/offline_show.h"
#include "tests/player/temporary_folder.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using win32_layer::Layer;
using win32_layer::VirtualMidiOutput;
using Kind = TimeCodeReader::Event::Kind;

constexpr double kBarSeconds = 2;

/// A show in virtual time, of two songs of 40 bars, whose time code a receiver follows.
class FollowedShow {
public:
    using Steer = std::function<void(FollowedShow&, OfflineShow&, std::uint64_t clock)>;
    explicit FollowedShow(const Steer& steer)
        : control_(Settings()),
          show_(
              {SongOfBeats("One", 160), SongOfBeats("Two", 160)},
              [this, steer](OfflineShow& show, std::uint32_t) { steer(*this, show, show.GetClock()); },
              TransportSettings()) {
        host_ = &show_.GetTransport().GetHost();
    }

    /// Until the steering leaves.
    void Run() { show_.Run(); }
    void Leave() {
        hasLeft_ = true;
        show_.Leave();
    }
    /// From now on.
    void ForgetWhatCame() {
        events.clear();
        fullFrames = 0;
        piecesToLock = 0;
    }

    std::vector<TimeCodeReader::Event> events;
    int fullFrames = 0;
    int piecesToLock = 0;  // since the latest full frame; the most
    double latestSeconds = 0;

private:
    TimeCodeControl::Settings Settings() {
        TimeCodeControl::Settings settings;
        settings.frameRate = FrameRate::k30;
        settings.musicOutput = "0";
        settings.virtualTime = [this] { return host_ ? host_->GetTime() : 0ns; };
        settings.observer = [this](const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
            if (hasLeft_)  // the music goes on for a moment
                return;
            if (bytes[0] == 0xF0) {
                ++fullFrames;
                pieces_ = 0;
            } else {
                ++pieces_;
            }
            latestSeconds = std::chrono::duration<double>(time).count();
            reader_.Read(bytes, count, latestSeconds);
            if (reader_.IsLocked() && pieces_ > 0) {
                piecesToLock = std::max(piecesToLock, pieces_);
                pieces_ = -1'000'000;
            }
        };
        settings.say = [](const std::string& text) { ADD_FAILURE() << text; };
        return settings;
    }
    Transport::Settings TransportSettings() {
        Transport::Settings settings;
        settings.timeCode = &control_;
        return settings;
    }

    TimeCodeReader reader_{[this](const TimeCodeReader::Event& event) { events.push_back(event); }};
    int pieces_ = 0;
    bool hasLeft_ = false;
    const PlaybackHost* host_ = nullptr;
    TimeCodeControl control_;
    OfflineShow show_;
};

TEST(TimeCode, IsFollowedAgainWithinTwoCyclesAfterWhateverTheOperatorDoes) {
    struct Row {
        std::vector<std::string> commands;
        int fullFrames;
        double secondsAt;  // of the show, where the commands led to; they come at bar 6
    };
    for (const Row& row : std::vector<Row>{{{}, 0, 5 * kBarSeconds},
                                           {{"stop", "play"}, 1, 5 * kBarSeconds},
                                           {{"pause", "continue"}, 1, 5 * kBarSeconds},
                                           {{"locate 9"}, 2, 8 * kBarSeconds},
                                           {{"locate 3:2"}, 2, 4.5},
                                           {{"stop", "locate 9", "play"}, 3, 8 * kBarSeconds},
                                           {{"select song 2", "play"}, 3, 80},
                                           {{"time code rate 25"}, 1, 5 * kBarSeconds},
                                           {{"time code rate 29.97df"}, 1, 5 * kBarSeconds},
                                           {{"time code off", "time code on"}, 1, 5 * kBarSeconds}}) {
        const std::string name = testing::PrintToString(row.commands);
        double secondsThen = 0;
        FollowedShow show([&](FollowedShow& followed, OfflineShow& offline, std::uint64_t clock) {
            if (clock == 5 * 96 + 1) {
                followed.ForgetWhatCame();
                secondsThen = std::chrono::duration<double>(offline.GetTransport().GetHost().GetTime()).count();
                for (const std::string& command : row.commands)
                    EXPECT_TRUE(offline.Do(command).done) << command;
            } else if (clock == 8 * 96) {
                followed.Leave();
            }
        });
        show.Run();

        EXPECT_EQ(show.fullFrames, row.fullFrames) << name;
        EXPECT_LE(show.piecesToLock, 16) << name;
        bool hasRun = false;
        for (const auto& event : show.events) {
            EXPECT_NE(event.kind, Kind::kMissing) << name;
            EXPECT_NE(event.kind, Kind::kJumped) << name;
            hasRun = hasRun || event.kind == Kind::kRuns;
        }
        ASSERT_TRUE(hasRun) << name;
        const auto& last = show.events.back();
        // The commands took no time: within a clock and a frame.
        EXPECT_NEAR(last.time.GetAsSeconds() - row.secondsAt, last.seconds - secondsThen, 0.08) << name;
    }
}

TEST(TimeCode, ASongThatFollowsAtOnceGoesOnUnbroken) {
    FollowedShow show([](FollowedShow& followed, OfflineShow&, std::uint64_t clock) {
        if (clock == 39 * 96)
            followed.ForgetWhatCame();
        else if (clock == 42 * 96)
            followed.Leave();
    });
    show.Run();
    EXPECT_EQ(show.fullFrames, 0);
    for (const auto& event : show.events)
        EXPECT_EQ(event.kind, Kind::kRuns) << event.time.GetAsString();
    EXPECT_NEAR(show.events.back().time.GetAsSeconds(), 42 * kBarSeconds, 0.2);
}

TEST(TimeCodeSender, PausesAtNoTempoLeadToABurst) {
    for (const double tempo : {30.0, 60.0, 100.0, 120.0, 300.0}) {
        const double clock = 60 / tempo / 24;
        double now = 0;
        std::map<double, int> pieces;  // by the moment at which they leave
        int fullFrames = 0;
        TimeCodeSender sender({FrameRate::k30,
                               {},
                               [&now] { return std::chrono::nanoseconds(std::llround(now * 1e9)); },
                               [&](const std::uint8_t* bytes, std::size_t, std::chrono::nanoseconds time) {
                                   if (bytes[0] == 0xF0)
                                       ++fullFrames;
                                   else
                                       ++pieces[std::chrono::duration<double>(time).count()];
                               }});
        sender.SetActive(true);
        sender.Locate(0);
        // The music stops in the midst of each tenth clock, and goes on a second later.
        for (int i = 0; i < 500; ++i) {
            sender.Play(i * clock, (i + 1) * clock, clock);
            now += i % 10 == 9 ? 0.3 * clock : clock;
            if (i % 10 != 9)
                continue;
            sender.Locate((i + 1) * clock);
            now += 1;
        }
        int largest = 0;
        int all = 0;
        for (const auto& [time, count] : pieces) {
            largest = std::max(largest, count);
            all += count;
        }
        EXPECT_LE(largest, 3) << tempo;
        EXPECT_GT(all, 400) << tempo;
        // Where little is owed, play goes on without one.
        EXPECT_EQ(fullFrames, tempo < 90 ? 101 : 52) << tempo;
    }
}

TEST(TimeCodeSender, IsSteeredWhileItsThreadSends) {
    Layer::Instance().Reset();
    const auto desk = std::make_shared<VirtualMidiOutput>(L"Desk");
    const auto other = std::make_shared<VirtualMidiOutput>(L"Other");
    Layer::Instance().AddOutput(desk);
    Layer::Instance().AddOutput(other);
    {
        TimeCodeSender sender({});
        sender.SetOutputPortIndex(0);
        sender.SetActive(true);
        std::atomic<bool> isOver{false};
        std::thread operating([&] {
            for (unsigned int i = 0; !isOver; ++i) {
                sender.Locate(i);
                sender.ChangeFrameRate(static_cast<FrameRate>(i % 4));
                sender.SetOutputPortIndex(i % 2);
                sender.SetActive(i % 3 != 0);
                EXPECT_FALSE(sender.GetLabel().empty());
            }
            sender.SetActive(true);
        });
        constexpr double kClock = 0.0005;
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 5000 || desk->GetPlayed().empty() || other->GetPlayed().empty(); ++i) {
            sender.Play(i * kClock, (i + 1) * kClock, kClock);
            if (std::chrono::steady_clock::now() - start > 20s)
                break;
        }
        isOver = true;
        operating.join();
        sender.Play(0, 10, 10);  // pieces are still to come
    }
    EXPECT_FALSE(other->GetPlayed().empty());
    EXPECT_FALSE(desk->GetPlayed().empty());
    for (const auto& message : desk->GetPlayed())
        EXPECT_TRUE((message.bytes[0] == 0xF1 && message.bytes.size() == 2) ||
                    (message.bytes[0] == 0xF0 && message.bytes.size() == 10));
    Layer::Instance().Reset();
    EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
}

TEST(TimeCodeReader, TellsGapsAndJumps) {
    std::vector<std::pair<Kind, std::string>> told;
    TimeCodeReader reader(
        [&](const TimeCodeReader::Event& event) { told.emplace_back(event.kind, event.time.GetAsString()); });
    const auto sendCycle = [&](const MidiTimeCode& time, int leftOut = -1) {
        for (int piece = 0; piece < 8; ++piece)
            if (piece != leftOut) {
                const QuarterFrameMessage message = time.GetQuarterFrameMessage(static_cast<unsigned char>(piece));
                reader.Read(message.Get(), QuarterFrameMessage::kSize, 0);
            }
    };
    sendCycle({0, 0, 59, 28, FrameRate::k2997Drop});
    sendCycle({0, 1, 0, 2, FrameRate::k2997Drop});
    sendCycle({0, 1, 0, 4, FrameRate::k2997Drop}, 5);
    sendCycle({0, 1, 0, 6, FrameRate::k2997Drop});
    sendCycle({17, 1, 0, 8, FrameRate::k2997Drop});
    EXPECT_THAT(told, ElementsAre(std::pair(Kind::kLocked, "00:00:59;29"), std::pair(Kind::kRuns, "00:01:00;03"),
                                  std::pair(Kind::kMissing, "00:01:00;03"), std::pair(Kind::kLocked, "00:01:00;07"),
                                  std::pair(Kind::kJumped, "17:01:00;09")));
    EXPECT_EQ(reader.GetMissing(), 1u);
    EXPECT_EQ(reader.GetJumps(), 1u);
}

/// Takes nothing until it is let go.
class StuckOutput : public VirtualMidiOutput {
public:
    StuckOutput() : VirtualMidiOutput(L"Stuck") {}
    void Play(const std::uint8_t*, std::size_t, std::chrono::nanoseconds) override { door.Pass(); }

    Door door;
};

TEST(TimeCodePort, ADeviceThatTakesNothingHoldsNobodyUpAndIsToldOf) {
    Layer::Instance().Reset();
    const auto device = std::make_shared<StuckOutput>();
    Layer::Instance().AddOutput(device);
    {
        TimeCodePort port(0);
        const std::uint8_t piece[] = {0xF1, 0x00};
        for (int i = 0; i < 1000; ++i)
            port.Send(piece, sizeof(piece));
        EXPECT_EQ(port.GetState(), TimeCodePort::State::kFailing);
        EXPECT_GT(port.GetLostCount(), 900u);
        device->door.Open();
    }
    Layer::Instance().Reset();
    EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
}

class TimeCodeControlTest : public testing::Test {
protected:
    TimeCodeControlTest() {
        Layer::Instance().Reset();
        Plug(L"Synth");
        Plug(L"Desk");
    }
    ~TimeCodeControlTest() override { Layer::Instance().Reset(); }

    static void Plug(const std::wstring& name) {
        Layer::Instance().AddOutput(
            std::make_shared<VirtualMidiOutput>(name, VirtualMidiOutput::Speed::kAtOnce, false));
    }
    TimeCodeControl Open(const std::string& output = {}) {
        TimeCodeControl::Settings settings;
        settings.output = output;
        settings.musicOutput = "0";
        settings.say = [this](const std::string& text) { said_.push_back(text); };
        return TimeCodeControl(settings);
    }

    const TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "show.json";
    std::vector<std::string> said_;
};

TEST_F(TimeCodeControlTest, RateAndOutputComeBackAndAnotherDeviceAtItsIndexIsNotTaken) {
    {
        TimeCodeControl control = Open();
        control.OpenShow(file_, false);
        control.SetFrameRate(FrameRate::k25);
        control.SetOutput("Desk");
        EXPECT_EQ(TemporaryFolder::Contents(folder_ / "show.json.mtc"),
                  std::string("\x14MidiTimeCodeSettings\0\1\1\0\0\0\1", 28));
    }
    Layer::Instance().Reset();
    Plug(L"Piano");
    Plug(L"Synth");
    {
        TimeCodeControl control = Open();
        control.OpenShow(file_, true);
        EXPECT_EQ(control.GetSender().GetRate(), FrameRate::k25);
        EXPECT_EQ(control.GetSender().GetState(), TimeCodeSender::State::kLost);
        EXPECT_THAT(said_, ElementsAre("time code is not sent: its output 'Desk' is not there"));
    }
    Plug(L"Desk");
    TimeCodeControl control = Open();
    control.OpenShow(file_, true);
    EXPECT_EQ(control.GetSender().GetState(), TimeCodeSender::State::kOn) << "though its index is another one";
}

TEST_F(TimeCodeControlTest, AStoredRateThatCannotBeSentIsSaid) {
    folder_.Put("show.json.mtc", std::string("\x14MidiTimeCodeSettings\0\0\0\0\0\0\7", 28));
    TimeCodeControl control = Open();
    control.OpenShow(file_, false);
    EXPECT_EQ(control.GetSender().GetRate(), FrameRate::k30);
    EXPECT_THAT(said_, ElementsAre(HasSubstr("frame rate 7 cannot be sent; 30 fps is")));
}

}  // namespace
}  // namespace player
