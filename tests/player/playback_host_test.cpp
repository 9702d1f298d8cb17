#include "player/playback_host.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "player/midi_file_import.h"
#include "tests/player/offline_show.h"
#include "tests/player/song_generator.h"

namespace player {
namespace {

constexpr unsigned kSeeds = 12;

ImportedSong GeneratedSong(unsigned seed) {
    SongGenerator::Options options;
    options.quarters = 12;
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

}  // namespace
}  // namespace player
