#include "player/control_server.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <latch>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "player/control_client.h"
#include "tests/midi/message_of.h"
#include "tests/player/offline_show.h"
#include "tests/player/temporary_folder.h"
#include "win32_layer/layer.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;
using testing::HasSubstr;
using win32_layer::Layer;

/// A show of two long songs in real time, served at a socket.
class ControlServerTest : public testing::Test {
protected:
    ControlServerTest() {
        Layer::Instance().Reset();
        Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
            L"Receiver", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
        Layer::Instance().SetObserver([this](const std::uint8_t* bytes, std::size_t count,
                                             std::chrono::nanoseconds time) { activity_.Add(bytes, count, time); });
        Transport::Settings settings;
        const std::vector<vemo_midi::VoiceEvent> program = {{192, 0xC0, 0, 40, 0}};
        settings.show = ShowOf({SongOfBeats("One", 1600, program), SongOfBeats("Two \xC3\xA9", 1600, program)});
        transport_ = std::make_unique<Transport>(settings, show_, feed_);
        Serve();
    }
    ~ControlServerTest() override {
        server_.reset();
        feed_.Close();
        transport_.reset();
        Layer::Instance().Reset();
    }

    void Serve() {
        server_ = std::make_unique<ControlServer>(ControlServer::Settings{path_, "Receiver", [] {}, &activity_},
                                                  *transport_, feed_);
    }

    static std::string Ask(ControlClient& client, const std::string& line) {
        client.Send(line);
        return client.Receive(10s).value_or("no answer");
    }
    /// The first line that holds the text.
    static std::string Find(ControlClient& client, const std::string& text) {
        for (const auto start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - start < 10s;)
            if (const auto line = client.Receive(100ms); line && line->find(text) != std::string::npos)
                return *line;
        return "no line with " + text;
    }
    static bool IsDropped(ControlClient& client) {
        for (const auto start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - start < 10s;) {
            client.Receive(100ms);
            if (!client.IsOpen())
                return true;
        }
        return false;
    }

    const TemporaryFolder folder_;
    const std::string path_ = (folder_ / "socket").string();
    CurrentShow show_;
    PlaybackFeed feed_;
    ActivityMeter activity_;
    std::unique_ptr<Transport> transport_;
    std::unique_ptr<ControlServer> server_;
};

TEST_F(ControlServerTest, AnswersEveryLineOnceInItsOrderWithItsNumber) {
    ControlClient client(path_);
    client.Send("1 play\n2 play\nlocate 3\n\n5 nonsense\n6 stop\n7 state\n8 commands\r");
    const char* const wanted[] = {
        R"({"done":true,"message":"","number":1})",
        R"({"done":false,"message":"play is not possible while playing","number":2})",
        R"({"done":true,"message":""})",
        R"({"done":false,"message":"no command '';)",
        R"({"done":false,"message":"no command 'nonsense';)",
        R"({"done":true,"message":"","number":6})",
        R"({"done":true,"message":"","number":7,"state":{"state":"stopped")",
        R"({"done":true,"message":"","number":8,"commands":[{"name":"load show","usage":"load show FILE")",
    };
    for (const char* const start : wanted) {
        const std::string answer = client.Receive(10s).value_or("no answer");
        EXPECT_EQ(answer.substr(0, std::strlen(start)), start);
        EXPECT_TRUE(Json::accept(answer));
    }
    EXPECT_FALSE(client.Receive(50ms));
    struct stat found = {};
    ASSERT_EQ(stat(path_.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777u, 0600u);
}

TEST_F(ControlServerTest, AWatcherSeesChangesAndTheBeatsGoBy) {
    ControlClient watcher(path_);
    EXPECT_EQ(Ask(watcher, "watch"), R"({"done":true,"message":""})");
    EXPECT_THAT(Find(watcher, "\"state\":\"stopped\""), HasSubstr("\"title\":\"Two \xC3\xA9\""));
    EXPECT_THAT(Find(watcher, "\"event\":\"position\""), HasSubstr("\"bar\":1,\"beat\":1"));
    ControlClient operator_(path_);
    Ask(operator_, "tempo 2");
    EXPECT_THAT(Find(watcher, "\"tempoScale\":2.0"), HasSubstr("\"event\":\"state\""));
    const auto start = std::chrono::steady_clock::now();
    Ask(operator_, "play");
    int positions = 0;
    int beats = 0;
    std::string active;
    for (Json latest; beats < 4;) {
        ASSERT_LT(std::chrono::steady_clock::now() - start, 10s);
        const auto line = watcher.Receive(100ms);
        if (!line || line->find("\"position\"") == std::string::npos)
            continue;
        const Json position = Json::parse(*line)["position"];
        ++positions;
        beats += !latest.is_null() && latest["beat"] != position["beat"];
        active += position["active"].dump();
        latest = position;
    }
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(seconds, 0.75) << "four beats of a quarter of a second";
    EXPECT_LE(positions, 20 * seconds + beats + 2);
    EXPECT_THAT(active, HasSubstr("[1]"));
}

TEST_F(ControlServerTest, ThePositionIsNeverTheOneOfTheStartBefore) {
    ControlClient client(path_);
    Ask(client, "tempo 2");
    for (int round = 0; round < 5; ++round) {
        client.Send("locate 200\nplay");
        client.Receive(10s);
        client.Receive(10s);
        std::this_thread::sleep_for(20ms);
        EXPECT_THAT(Ask(client, "state"), HasSubstr("\"bar\":200,"));
        client.Send("stop\nselect song 1\nplay\nstate");
        for (int answer = 0; answer < 3; ++answer)
            client.Receive(10s);
        EXPECT_THAT(client.Receive(10s).value_or("no answer"), HasSubstr("\"bar\":1,")) << "at once";
        client.Send("stop\nlocate 300\nstate");
        client.Receive(10s);
        client.Receive(10s);
        EXPECT_THAT(client.Receive(10s).value_or("no answer"), HasSubstr("\"bar\":300,"));
    }
}

TEST_F(ControlServerTest, AWatcherIsToldWhenTheSongChangesAProgram) {
    ControlClient watcher(path_);
    Ask(watcher, "watch");
    EXPECT_THAT(Find(watcher, "\"event\":\"state\""), HasSubstr("\"program\":1,"));
    ControlClient operator_(path_);
    Ask(operator_, "tempo 2");
    Ask(operator_, "play");
    EXPECT_THAT(Find(watcher, "\"program\":41,"), HasSubstr("\"state\":\"playing\""));
    EXPECT_THAT(Ask(operator_, "state"), HasSubstr("\"program\":41,"));
    Ask(operator_, "stop");
    Ask(operator_, "locate 1");
    EXPECT_THAT(Ask(operator_, "state"), HasSubstr("\"program\":1,"));
}

TEST_F(ControlServerTest, ThreeClientsAtOnceAreEachAnsweredOnceInOrder) {
    constexpr int kCommands = 150;
    const std::vector<std::string> commands = {"play",  "stop",     "tempo up", "mute 1",    "unmute 1",
                                               "panic", "state",    "locate 9", "next song", "select song 1",
                                               "pause", "continue", "x",        "resend",    "transpose up"};
    std::latch start(3);
    std::vector<std::thread> clients;
    std::atomic<int> disorder{0};
    for (unsigned seed = 1; seed <= 3; ++seed)
        clients.emplace_back([&, seed] {
            std::mt19937 random(seed);
            ControlClient client(path_);
            start.arrive_and_wait();
            for (int sent = 0, answered = 0; answered < kCommands;) {
                while (sent < kCommands && sent - answered < 10)
                    client.Send(std::to_string(++sent) + " " + commands[random() % commands.size()]);
                const auto line = client.Receive(30s);
                if (!line || Json::parse(*line)["number"] != ++answered) {
                    ++disorder;
                    return;
                }
            }
            disorder += client.Receive(20ms).has_value();
        });
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(disorder, 0);
}

TEST_F(ControlServerTest, WhatAHostileClientSendsConcernsIt) {
    ControlClient good(path_);
    Ask(good, "play");
    {
        ControlClient longest(path_);
        EXPECT_THAT(Ask(longest, std::string(4096, 'x')), HasSubstr("no command"));
        EXPECT_EQ(Ask(longest, std::string(4097, 'x')), R"({"done":false,"message":"a line has at most 4096 bytes"})");
        EXPECT_TRUE(IsDropped(longest));
        ControlClient endless(path_);
        for (int i = 0; i < 1000 && endless.Send(std::string(10'000, 'x')); ++i) {
        }
        EXPECT_TRUE(IsDropped(endless));
    }
    std::mt19937 random(7);
    for (int round = 0; round < 50; ++round) {
        ControlClient noise(path_);
        std::string line;
        for (unsigned i = 0, length = random() % 300; i < length; ++i)
            line += static_cast<char>(random());
        noise.Send(line);
        const bool isAnswered = round % 2 != 0 || Json::accept(noise.Receive(10s).value_or(""));
        EXPECT_TRUE(isAnswered) << round;
    }
    // Asks for much and reads nothing.
    ControlClient silent(path_);
    silent.Send("watch");
    for (int i = 0; i < 100'000 && silent.Send("state"); ++i) {
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Ask(good, "panic"), R"({"done":true,"message":""})");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    pollfd hangUp = {silent.GetHandle(), 0, 0};
    EXPECT_EQ(poll(&hangUp, 1, 10'000), 1) << "is never dropped";
    EXPECT_THAT(Ask(good, "state"), HasSubstr("\"state\":\"playing\""));
}

TEST_F(ControlServerTest, NoMoreThanSixteenClientsAndTheNextOnceOneHasLeft) {
    std::vector<std::unique_ptr<ControlClient>> clients;
    for (int i = 0; i < 16; ++i) {
        clients.push_back(std::make_unique<ControlClient>(path_));
        EXPECT_THAT(Ask(*clients.back(), "tempo up"), HasSubstr("true"));
    }
    ControlClient refused(path_);
    EXPECT_EQ(refused.Receive(10s), R"({"done":false,"message":"16 clients are connected, and no more are taken"})");
    EXPECT_TRUE(IsDropped(refused));
    clients.pop_back();
    for (const auto start = std::chrono::steady_clock::now();;) {
        ControlClient next(path_);
        if (Ask(next, "tempo up").starts_with(R"({"done":true)"))
            break;
        ASSERT_LT(std::chrono::steady_clock::now() - start, 10s);
    }
}

TEST_F(ControlServerTest, ALiveSocketIsRefusedAndADeadOneReplaced) {
    ControlServer::Settings settings;
    settings.path = path_;
    const auto refusal = [&] {
        return MessageOf<ControlServer::Refused>([&] { ControlServer(settings, *transport_, feed_); });
    };
    EXPECT_EQ(refusal(), path_ + ": a player listens there already; see: vemo_player attach");
    server_.reset();
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_THROW(ControlClient{path_}, ControlClient::Unreachable);
    // As a player leaves it that was killed.
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(dead);
    Serve();
    ControlClient client(path_);
    EXPECT_THAT(Ask(client, "state"), HasSubstr("\"title\":\"One\""));
    server_.reset();
    std::ofstream(path_) << "somebody's letter";
    EXPECT_EQ(refusal(), path_ + ": is there already and is no socket");
    settings.path = std::string(200, 'x');
    EXPECT_EQ(refusal(), "'" + settings.path + "' is no path for a socket: it has at most 107 bytes");
}

}  // namespace
}  // namespace player
