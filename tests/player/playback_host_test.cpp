#include "player/playback_host.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "player/midi_file_import.h"
#include "tests/player/offline_show.h"
#include "tests/player/song_generator.h"

namespace player {
namespace {

constexpr unsigned kSeeds = 12;
constexpr std::uint64_t kRing = 4;  // cycles that are filled ahead

ImportedSong GeneratedSong(unsigned seed, std::uint32_t quarters = 12) {
    SongGenerator::Options options;
    options.quarters = quarters;
    options.mostChannels = 6;
    options.eventsPerChannel = 60;
    return ImportMidiFile(SongGenerator(seed, options).Next(), 1);
}

std::uint32_t TicksPerClock(const ImportedSong& song) {
    return song.song.GetResolution() / 24u;
}

std::string Text(const std_midi::VoiceMessage& message) {
    return std::to_string(message.status) + " " + std::to_string(message.data1) + " " + std::to_string(message.data2);
}

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    unsigned Below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
    std::string Transpose() { return "transpose " + std::to_string(static_cast<int>(Below(25)) - 12); }
    std::string Locate(const ImportedSong& song) {
        const auto& beats = song.song.GetTimeline().GetBarsBeats();
        const auto& beat = beats[Below(static_cast<unsigned>(beats.size()))];
        return "locate " + std::to_string(beat.bar()) + ":" + std::to_string(beat.beat());
    }

private:
    std::mt19937 engine_;
};

TEST(PlaybackHost, EveryMessageOfASongLeavesOnceInOrderInTheCycleOfItsClock) {
    for (unsigned seed = 1; seed <= kSeeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const ImportedSong song = GeneratedSong(seed);
        const std::uint32_t ticksPerClock = TicksPerClock(song);
        OfflineShow show({song});
        ASSERT_EQ(show.Run(), TransportState::kEnded);
        EXPECT_EQ(show.Deaf().WhatSounds(), "");
        std::map<std::uint32_t, std::chrono::nanoseconds> clocks;
        for (const PlaybackRecord& record : show.TakeRecords())
            if (record.kind == PlaybackRecord::Kind::kClock)
                clocks[record.tick] = record.time;

        for (const auto& [id, track] : song.song.GetVoiceData()) {
            std::vector<OfflineShow::Sent> sent;
            for (const OfflineShow::Sent& one : show.GetSent())
                if ((one.message.status & 0x0F) == id)
                    sent.push_back(one);
            const auto& events = track.GetEvents();
            const auto first = std::search(sent.begin(), sent.end(), events.begin(), events.end(),
                                           [](const auto& a, const auto& b) { return a.message == b.message; });
            ASSERT_TRUE(first != sent.end() || events.empty()) << "channel " << id;
            // Around them stands what sets a state or ends it, and nothing that sounds.
            const auto last = first + static_cast<std::ptrdiff_t>(events.size());
            for (auto extra = sent.begin(); extra != sent.end(); ++extra) {
                const bool isOfSong = extra >= first && extra < last;
                EXPECT_TRUE(isOfSong || (extra->message.status & 0xF0) != 0x90)
                    << "channel " << id << ": " << Text(extra->message);
            }
            for (std::size_t i = 0; i < events.size(); ++i)
                ASSERT_EQ(first[static_cast<std::ptrdiff_t>(i)].time,
                          clocks.at(events[i].time / ticksPerClock * ticksPerClock))
                    << "channel " << id << " tick " << events[i].time << ": " << Text(events[i].message);
        }
    }
}

/// Steers a show at random by its seed, and notes what it hears against the rules.
class RandomOperator {
public:
    RandomOperator(unsigned seed, const ImportedSong& song) : random_(seed), song_(song) {}

    void Steer(OfflineShow& show) {
        CheckMutes(show);
        if (random_.Below(24) != 0 || actions_ == kMostActions)
            return;
        ++actions_;
        const std::string channel = std::to_string(1 + random_.Below(16));
        switch (random_.Below(9)) {
            case 0:
            case 1: Do(show, random_.Locate(song_)); break;
            case 2: Do(show, random_.Below(2) ? "tempo 1.7" : "tempo 0.6"); break;
            case 3: Do(show, random_.Transpose()); break;
            case 4: Mute(show, AnyChannel()); break;
            case 5: Unmute(show); break;
            case 6:
                Do(show, "panic");
                CheckSilence(show, "panic");
                break;
            default:
                Do(show, "stop");
                CheckSilence(show, "stop");
                if (random_.Below(3) == 0)
                    Do(show, random_.Transpose());
                if (random_.Below(3) == 0)
                    Mute(show, AnyChannel());
                if (random_.Below(3) == 0)
                    Unmute(show);
                if (random_.Below(2) == 0)
                    Do(show, random_.Locate(song_));
                Do(show, "play");
        }
    }
    void CheckSilence(const OfflineShow& show, const std::string& after) {
        EXPECT_EQ(show.Obedient().WhatSounds(), "") << "after " << after << Log();
        EXPECT_EQ(show.Deaf().WhatSounds(), "") << "after " << after << Log();
    }

private:
    static constexpr int kMostActions = 40;

    int AnyChannel() {
        auto track = song_.song.GetVoiceData().begin();
        for (unsigned step = random_.Below(static_cast<unsigned>(song_.song.GetVoiceData().size())); step > 0; --step)
            ++track;
        return (*track).first;
    }
    void Do(OfflineShow& show, const std::string& command) {
        log_ += " " + command + " @" + std::to_string(show.GetTransport().GetHost().GetTick()) + ",";
        const CommandAnswer answer = show.Do(command);
        EXPECT_TRUE(answer.done) << answer.message << Log();
        if (command.starts_with("locate") || command == "play")
            for (auto& [channel, clock] : quietFrom_)
                clock = std::min(clock, show.GetClock());
    }
    void Mute(OfflineShow& show, int channel) {
        const bool playing = show.GetTransport().GetSnapshot()->state == TransportState::kPlaying;
        Do(show, "mute " + std::to_string(channel + 1));
        EXPECT_TRUE(show.Deaf().IsSilent(static_cast<std::size_t>(channel))) << Log();
        quietFrom_.emplace(channel, show.GetClock() + (playing ? kRing : 0));
    }
    void Unmute(OfflineShow& show) {
        if (quietFrom_.empty())
            return;
        const int channel = quietFrom_.begin()->first;
        Do(show, "unmute " + std::to_string(channel + 1));
        quietFrom_.erase(channel);
    }
    void CheckMutes(const OfflineShow& show) {
        for (; heard_ < show.GetSent().size(); ++heard_) {
            const OfflineShow::Sent& sent = show.GetSent()[heard_];
            const auto muted = quietFrom_.find(sent.message.status & 0x0F);
            if ((sent.message.status & 0xF0) != 0x90 || muted == quietFrom_.end())
                continue;
            EXPECT_LT(sent.clock, muted->second) << "channel " << muted->first << " is muted" << Log();
        }
    }
    std::string Log() const { return "; done:" + log_; }

    Random random_;
    const ImportedSong& song_;
    int actions_ = 0;
    std::string log_;
    std::map<int, std::uint64_t> quietFrom_;  // muted channels, and the clock from which they strike nothing
    std::size_t heard_ = 0;
};

TEST(PlaybackHost, NothingSoundsAtAStopOrTheEndAndMutedChannelsStrikeNothingWhateverIsDone) {
    for (unsigned seed = 1; seed <= 2 * kSeeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const ImportedSong song = GeneratedSong(seed);
        RandomOperator random(seed, song);
        OfflineShow show({song}, [&](OfflineShow& running, std::uint32_t) { random.Steer(running); });
        ASSERT_EQ(show.Run(), TransportState::kEnded);
        random.CheckSilence(show, "the end");
        if (HasFailure())
            return;
    }
}

struct Heard {
    Receiver obedient{true};
    Receiver deaf{false};
};

// What the device holds once the cycle at tick is played, having come there by route.
Heard HearAt(const ImportedSong& song, std::uint32_t tick, const std::string& transpose,
             const std::vector<std::string>& route, std::uint32_t leaveAt) {
    std::optional<Heard> heard;
    bool routed = route.empty();
    OfflineShow show({song}, [&](OfflineShow& running, std::uint32_t next) {
        if (!routed && next >= leaveAt) {
            routed = true;
            for (const std::string& command : route)
                EXPECT_TRUE(running.Do(command).done) << command;
        } else if (routed && !heard && next == tick + TicksPerClock(song)) {
            heard.emplace();
            for (const OfflineShow::Sent& sent : running.GetSent()) {
                heard->obedient.Take(sent.message);
                heard->deaf.Take(sent.message);
            }
            running.Do("stop");
            running.Leave();
        }
    });
    show.Do(transpose);
    show.Run();
    EXPECT_TRUE(heard);
    return heard ? std::move(*heard) : Heard();
}

void ExpectSameState(const ImportedSong& song, std::uint32_t end, const Receiver& played, const Receiver& located) {
    for (const auto& [id, track] : song.song.GetVoiceData()) {
        const auto& events = track.GetEvents();
        if (events.empty() || events.back().time < end)
            continue;
        const std::string name = "channel " + std::to_string(id);
        // At both ends two notes may be folded into one, which the first note-off ends.
        for (std::size_t note = 12; note < 116; ++note)
            EXPECT_EQ(located[id].notes[note], played[id].notes[note]) << name << " note " << note;
        // Before the song chooses a program, a device may hold any at first, and the track's own after a start anew.
        if (played[id].program != -1) {
            EXPECT_EQ(located[id].program, played[id].program) << name;
        }
        EXPECT_EQ(located[id].bend, played[id].bend) << name;
        for (const vemo_midi::VoiceEvent& event : events) {
            const int controller = event.message.data1;
            if (event.time >= end || (event.message.status & 0xF0) != 0xB0)
                continue;
            ASSERT_TRUE(located[id].controllers.contains(controller)) << name << " controller " << controller;
            EXPECT_EQ(located[id].controllers.at(controller), played[id].controllers.at(controller))
                << name << " controller " << controller;
        }
    }
}

TEST(PlaybackHost, AfterALocateTheDeviceHoldsWhatPlayingThereWouldHaveGiven) {
    for (unsigned seed = 1; seed <= 2 * kSeeds; ++seed) {
        const ImportedSong song = GeneratedSong(seed);
        const auto& beats = song.song.GetTimeline().GetBarsBeats();
        Random random(seed);
        const auto& beat = beats[random.Below(static_cast<unsigned>(beats.size()))];
        const std::uint32_t tick = beat.abs_time() / TicksPerClock(song) * TicksPerClock(song);
        const std::uint32_t end = tick + TicksPerClock(song);
        if (end > song.song.GetTimeline().GetLastTickIndex())
            continue;
        const std::string transpose = random.Below(2) ? "transpose 0" : random.Transpose();
        const std::string locate = "locate " + std::to_string(beat.bar()) + ":" + std::to_string(beat.beat());
        const auto leaveAt = random.Below(static_cast<unsigned>(beats.back().abs_time()));
        const Heard played = HearAt(song, tick, transpose, {}, 0);
        const std::vector<std::vector<std::string>> routes = {
            {locate}, {"stop", locate, "play"}, {random.Locate(song), locate}, {"panic", locate}};
        for (const std::vector<std::string>& route : routes) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", " + transpose + ", from tick " + std::to_string(leaveAt) +
                         " by " + route.front() + " to tick " + std::to_string(tick));
            const Heard located = HearAt(song, tick, transpose, route, leaveAt);
            ExpectSameState(song, end, played.obedient, located.obedient);
            ExpectSameState(song, end, played.deaf, located.deaf);
            if (HasFailure())
                return;
        }
    }
}

TEST(PlaybackHost, TwoRunsSteeredAlikeSendTheSameAtTheSameTimes) {
    const ImportedSong song = GeneratedSong(7, 24);
    std::vector<OfflineShow::Sent> first;
    for (int run = 0; run < 2; ++run) {
        RandomOperator random(5, song);
        OfflineShow show({song}, [&](OfflineShow& running, std::uint32_t) { random.Steer(running); });
        ASSERT_EQ(show.Run(), TransportState::kEnded);
        if (run == 0)
            first = show.GetSent();
        ASSERT_EQ(show.GetSent().size(), first.size());
        for (std::size_t i = 0; i < first.size(); ++i) {
            ASSERT_EQ(Text(show.GetSent()[i].message), Text(first[i].message)) << i;
            ASSERT_EQ(show.GetSent()[i].time, first[i].time) << i;
        }
    }
}

}  // namespace
}  // namespace player
