#include "player/state_keeper.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/midi/patience.h"
#include "tests/player/offline_show.h"
#include "tests/player/song_generator.h"
#include "tests/player/temporary_folder.h"

namespace player {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// Ends within its last bar: on a bar line, the end would be the place of no clock.
ImportedSong Song(const std::string& title, unsigned bars = 4) {
    return SongOfBeats(title, 4 * bars - 1);
}

class StateKeeperTest : public ::testing::Test {
protected:
    std::string Text() const { return TemporaryFolder::Contents(path_); }
    /// Waits until the file says it; what it says last.
    template <class Wanted>
    ShowState WaitFor(const std::string& what, Wanted wanted) const {
        ShowState state;
        for (const auto start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - start < kLongest;
             std::this_thread::sleep_for(5ms)) {
            const std::string text = Text();
            if (text.empty())
                continue;
            state = ShowState::Parse(text);
            if (wanted(state))
                return state;
        }
        ADD_FAILURE() << what << ": the file stays at " << state.AsJson();
        return state;
    }
    ShowState WaitForPlace(const std::string& song, const std::string& bar) const {
        return WaitFor(song + " " + bar,
                       [&](const ShowState& state) { return state.song == song && state.bar == bar; });
    }

    // Less than the patience of the show that is held meanwhile.
    static constexpr auto kLongest = 15s;

    const TemporaryFolder folder_;
    const fs::path path_ = folder_ / "show.json.state";
};

TEST_F(StateKeeperTest, EveryBarPlayedIsSavedAlsoAcrossSongsThatFollowAtOnce) {
    std::vector<std::string> saved;
    OfflineShow show(
        {Song("One", 3), Song("Two", 2)}, [&, last = 0U](OfflineShow& running, std::uint32_t tick) mutable {
            const unsigned song = running.GetTransport().GetHost().GetSongNumber();
            // The first clock of a bar has been played, and nothing goes on until it is saved.
            if (tick % 384 != 4 || std::exchange(last, song * 1000 + tick) == song * 1000 + tick)
                return;
            const ShowState state = WaitForPlace(std::to_string(song), std::to_string(tick / 384 + 1) + ":1");
            saved.push_back(state.song + "@" + std::to_string(state.tick) + " in " + std::to_string(*state.entry));
        });
    StateKeeper keeper(show.GetFeed(), show.GetTransport(), path_);
    EXPECT_EQ(show.Run(), TransportState::kEnded);
    keeper.Close();
    EXPECT_EQ(saved, (std::vector<std::string>{"1@0 in 0", "1@384 in 0", "1@768 in 0", "2@0 in 1", "2@384 in 1"}));
    EXPECT_EQ(ShowState::Parse(Text()).song, "2");
}

TEST_F(StateKeeperTest, EverythingThatIsSetIsSaved) {
    Transport::Settings settings;
    settings.show = ShowOf({Song("One"), Song("Two")}, ShowKind::kRanges);
    OfflineShow show({}, {}, settings);
    StateKeeper keeper(show.GetFeed(), show.GetTransport(), path_);
    for (const char* command : {"tempo 1.25", "transpose -3", "hold on", "mute 2", "mute 16", "trim 1 80",
                                "program 1 41", "insert 2 3", "move 1 2", "locate 2:3"})
        EXPECT_TRUE(show.Do(command).done) << command;
    ShowState wanted;
    wanted.setList = {{"2", AfterSong::kGo}, {"1", AfterSong::kGo}, {"2", AfterSong::kWait}};
    wanted.entry = 1;
    wanted.song = "1";
    wanted.tick = 576;
    wanted.bar = "2:3";
    wanted.tempoScale = 1.25;
    wanted.transposition = -3;
    wanted.holds = true;
    wanted.mutes = {2, 16};
    wanted.trims = {{1, 80}};
    wanted.programs = {{"1", {{1, 41}}}};
    EXPECT_EQ(WaitFor("all", [&](const ShowState& state) { return state == wanted; }).AsJson(), wanted.AsJson());
    EXPECT_TRUE(show.Do("skip").done);
    EXPECT_TRUE(show.Do("follow programs").done);
    wanted.setList.pop_back();
    wanted.programs.clear();
    EXPECT_EQ(WaitFor("all", [&](const ShowState& state) { return state == wanted; }).AsJson(), wanted.AsJson());
}

TEST_F(StateKeeperTest, ClosingSavesTheLastOfManyChanges) {
    OfflineShow show({Song("One")});
    StateKeeper keeper(show.GetFeed(), show.GetTransport(), path_);
    for (int step = 0; step < 300; ++step)
        show.Do(step % 2 == 0 ? "transpose up" : "tempo up");
    show.Do("locate 3");
    show.Do("transpose -7");
    keeper.Close();
    const ShowState state = ShowState::Parse(Text());
    EXPECT_EQ(state.transposition, -7);
    EXPECT_EQ(state.bar, "3:1");
    const std::string text = Text();
    show.Do("transpose 7");
    keeper.Close();
    EXPECT_EQ(Text(), text);
}

TEST_F(StateKeeperTest, ManyChangesAreFewWrites) {
    OfflineShow show({Song("One")});
    StateKeeper keeper(show.GetFeed(), show.GetTransport(), path_);
    std::vector<std::string> seen;
    const auto start = std::chrono::steady_clock::now();
    for (int step = 0; std::chrono::steady_clock::now() - start < 1100ms; ++step) {
        show.Do("transpose " + std::to_string(step % 12));
        if (std::string text = Text(); seen.empty() || text != seen.back())
            seen.push_back(std::move(text));
    }
    EXPECT_GE(seen.size(), 2u);
    EXPECT_LE(seen.size(), 8u);
}

TEST_F(StateKeeperTest, WhatTheFileSaysIsKeptUntilSomethingHappens) {
    const std::string old = "of yesterday";
    folder_.Put("show.json.state", old);
    {
        OfflineShow show({Song("One")});
        StateKeeper keeper(show.GetFeed(), show.GetTransport(), path_);
        EXPECT_FALSE(show.Do("click on").done);  // a message, and no change
        keeper.Close();
        EXPECT_EQ(Text(), old);
    }
    OfflineShow show({Song("One")}, [](OfflineShow& running, std::uint32_t tick) {
        if (tick == 8)
            running.Leave();
    });
    StateKeeper keeper(show.GetFeed(), show.GetTransport(), path_);
    show.Run();
    show.Do("stop");
    show.Do("locate 1");  // where it was at the start
    keeper.Close();
    EXPECT_EQ(ShowState::Parse(Text()).bar, "1:1");
}

TEST_F(StateKeeperTest, AnotherShowIsSavedBesideItselfAndTheOneBeforeStays) {
    SongGenerator generator(1, {.smpte = false});
    const auto bytes = generator.NextBytes();
    folder_.Put("song.mid", std::string(bytes.begin(), bytes.end()));
    folder_.Put("other.json",
                R"({"title": "Other", "kind": "programs", "songs": [{"key": "opening", "file": "song.mid"}]})");
    OfflineShow show({Song("One")});
    StateKeeper keeper(show.GetFeed(), show.GetTransport(), path_);
    show.Do("locate 2:2");
    EXPECT_EQ(WaitForPlace("1", "2:2").tick, 480u);
    const std::string before = TemporaryFolder::Contents(path_);
    const CommandAnswer loaded = show.Do("load show " + (folder_ / "other.json").string());
    EXPECT_TRUE(loaded.done) << loaded.message;
    show.Do("transpose 5");
    keeper.Close();
    EXPECT_EQ(TemporaryFolder::Contents(path_), before);
    const ShowState state = ShowState::Parse(TemporaryFolder::Contents(folder_ / "other.json.state"));
    EXPECT_EQ(state.song, "opening");
    EXPECT_EQ(state.transposition, 5);
}

TEST_F(StateKeeperTest, AWriteThatFailsIsToldOnceAndTriedAgain) {
    std::mutex mutex;
    std::vector<std::string> told;
    Count failures;
    OfflineShow show({Song("One")});
    StateKeeper keeper(show.GetFeed(), show.GetTransport(), folder_ / "gone" / "state", [&](const std::string& reason) {
        std::lock_guard lock(mutex);
        told.push_back(reason);
        failures.Add();
    });
    const std::string refusal = "cannot write " + (folder_ / "gone" / "state").string() + ": No such file or directory";
    for (const int round : {1, 2}) {
        show.Do("transpose " + std::to_string(round));
        ASSERT_TRUE(failures.WaitFor(round));
        show.Do("transpose " + std::to_string(round + 10));  // is no second telling
        std::this_thread::sleep_for(1200ms);                 // nor is the try after a second
        fs::create_directory(folder_ / "gone");
        const auto saved = [&] {
            const std::string text = TemporaryFolder::Contents(folder_ / "gone" / "state");
            return text.empty() ? 0 : ShowState::Parse(text).transposition;
        };
        for (int wait = 0; wait < 6000 && saved() != round + 10; ++wait)
            std::this_thread::sleep_for(10ms);
        EXPECT_EQ(saved(), round + 10);
        fs::remove_all(folder_ / "gone");
    }
    keeper.Close();
    EXPECT_EQ(told, (std::vector<std::string>{refusal, refusal}));
}

}  // namespace
}  // namespace player
