// What the operator's commands lead to in a show: pauses, count-in, set list, programs.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/player/offline_show.h"
#include "vemo_core/song_builder.h"

namespace player {
namespace {

constexpr unsigned kResolution = 96;
constexpr unsigned kBar = 4 * kResolution;
constexpr std::chrono::duration<double> kBeat{0.5};
constexpr std::chrono::duration<double> kClock = kBeat / 24;

/// At 120 in 4/4: one long note from the start to a beat before the end, and short
/// ones on every beat, on channels 1 and 2.
ShowSong Song(const std::string& key, unsigned bars, std::uint8_t longNote = 60) {
    std::vector<vemo_midi::VoiceEvent> beats;
    for (unsigned beat = 0; beat < 4 * bars; ++beat) {
        beats.emplace_back(beat * kResolution, 0x90, 1, 72, 90);
        beats.emplace_back(beat * kResolution + 48, 0x80, 1, 72, 64);
    }
    SongBuilder builder(kResolution);
    builder.Title(1, key)
        .Track(0, "long", 0, 127, 5, {{0, 0x90, 0, longNote, 90}, {bars * kBar - kResolution, 0x80, 0, longNote, 64}})
        .Track(1, "beats", 0, 127, 6, std::move(beats))
        .EndAt(bars * kBar);
    ShowSong song;
    song.key = key;
    song.title = key;
    song.song = std::make_shared<const ImportedSong>(ImportedSong{builder.BuildSong(), builder.BuildLog(), key, {}});
    return song;
}

Transport::Settings ShowOfSongs(std::vector<ShowSong> songs, AfterSong then) {
    ShowDocument document;
    for (const ShowSong& song : songs)
        document.setList.push_back({song.key, then});
    Transport::Settings settings;
    settings.show = std::make_shared<const Show>(std::move(document), "", std::move(songs));
    return settings;
}

std::vector<OfflineShow::Sent> Of(const OfflineShow& show, unsigned kind, unsigned channel) {
    std::vector<OfflineShow::Sent> found;
    std::ranges::copy_if(show.GetSent(), std::back_inserter(found),
                         [&](const auto& sent) { return sent.message.status == (kind | channel); });
    return found;
}

std::vector<std::string> SetList(OfflineShow& show) {
    std::vector<std::string> keys;
    const auto snapshot = show.GetTransport().GetSnapshot();
    for (const TransportSnapshot::Entry& entry : snapshot->setList)
        keys.push_back(snapshot->show->GetSongs()[entry.song].key + (keys.size() == snapshot->entry ? "*" : ""));
    return keys;
}

TEST(TransportShow, APauseOfTheSongLetsItsNotesRingAndGoesOnThereUnstruckThePausedOperatorsIsSilent) {
    ShowSong song = Song("One", 4);
    song.pauses = {kBar + 1};  // within the cycle that follows
    bool paused = false;
    OfflineShow show(
        {},
        [&](OfflineShow& running, std::uint32_t tick) {
            if (tick == 2 * kBar && !std::exchange(paused, true)) {
                EXPECT_TRUE(running.Do("pause").done);
                EXPECT_EQ(running.Deaf().WhatSounds(), "");
            }
        },
        ShowOfSongs({song}, AfterSong::kStop));
    int rests = 0;
    const auto state = show.Run([&](OfflineShow& running, const TransportSnapshot& snapshot) {
        EXPECT_EQ(snapshot.state, TransportState::kPaused);
        if (++rests == 1) {
            EXPECT_EQ(running.GetTransport().GetHost().GetTick(), kBar);
            EXPECT_EQ(running.Deaf().WhatSounds(), "channel 0 note 60 x1 ");
            EXPECT_EQ(Of(running, 0xB0, 0).size(), 0u);
        }
        EXPECT_TRUE(running.Do("continue").done);
    });
    EXPECT_EQ(state, TransportState::kEnded);
    EXPECT_EQ(rests, 2);
    // Struck at the start and, chased, after the operator's pause; not after the song's.
    EXPECT_EQ(Of(show, 0x90, 0).size(), 2u);
    EXPECT_EQ(Of(show, 0x90, 1).size(), 16u);
    EXPECT_EQ(show.Deaf().WhatSounds(), "");
}

TEST(TransportShow, ACountInClicksBeforeTheMusicAndTheClickTrackInIt) {
    ShowSong song = Song("One", 2);
    song.countInBars = 2;
    song.clickTrack = ShowDocument::ClickTrack{16, 37, 39, false};
    bool switchedOff = false;
    OfflineShow show(
        {},
        [&](OfflineShow& running, std::uint32_t tick) {
            if (tick >= kBar && !std::exchange(switchedOff, true)) {
                EXPECT_TRUE(running.Do("click off").done);
            }
        },
        ShowOfSongs({song}, AfterSong::kStop));
    ASSERT_EQ(show.Run(), TransportState::kEnded);
    const auto clicks = Of(show, 0x90, 15);
    ASSERT_GE(clicks.size(), 13u);  // what was filled when it was switched off still clicks
    ASSERT_LE(clicks.size(), 14u);
    for (std::size_t i = 0; i < clicks.size(); ++i) {
        EXPECT_EQ(clicks[i].message.data1, i % 4 == 0 ? 39 : 37) << i;
        EXPECT_NEAR(std::chrono::duration<double>(clicks[i].time - clicks[0].time).count(),
                    static_cast<double>(i) * kBeat.count(), 1e-6);
    }
    EXPECT_EQ(Of(show, 0x90, 1)[0].time, clicks[8].time);
    EXPECT_EQ(Of(show, 0x90, 1).size(), 8u);
    EXPECT_EQ(show.Deaf().WhatSounds(), "");
    int countIns = 0;
    for (const PlaybackRecord& record : show.TakeRecords()) {
        countIns += record.kind == PlaybackRecord::Kind::kCountIn;
        EXPECT_TRUE(record.kind != PlaybackRecord::Kind::kCountIn || (record.bar == 1 && record.tick == 0));
    }
    EXPECT_EQ(countIns, 2 * 96);
}

TEST(TransportShow, ASongThatFollowsAtOnceStartsOnTheNextClockWithTheOldOnesNotesEndedAndItsOwnControls) {
    ShowSong first = Song("One", 2);
    first.song = std::make_shared<const ImportedSong>([&] {  // its note is never ended
        SongBuilder builder(kResolution);
        builder.Track(0, "long", 0, 127, 5, {{0, 0x90, 0, 50, 90}, {kBar - 1, 0xB0, 0, 64, 127}}).EndAt(kBar - 1);
        return ImportedSong{builder.BuildSong(), builder.BuildLog(), "One", {}};
    }());
    bool steered = false;
    OfflineShow show(
        {},
        [&](OfflineShow& running, std::uint32_t) {
            if (std::exchange(steered, true))
                return;
            for (const char* const command : {"tempo 2", "transpose 5", "mute 2"})
                EXPECT_TRUE(running.Do(command).done);
        },
        ShowOfSongs({first, Song("Two", 1)}, AfterSong::kGo));
    ASSERT_EQ(show.Run(), TransportState::kEnded);
    std::optional<PlaybackRecord> last;
    std::optional<std::chrono::nanoseconds> entered;
    for (const PlaybackRecord& record : show.TakeRecords()) {
        if (record.kind != PlaybackRecord::Kind::kClock)
            continue;
        if (last && last->song != record.song) {
            entered = record.time;
            EXPECT_NEAR(std::chrono::duration<double>(record.time - last->time).count(), kClock.count() / 2, 1e-6);
        } else if (last && record.song == 2) {
            EXPECT_NEAR(std::chrono::duration<double>(record.time - last->time).count(), kClock.count(), 1e-6);
        }
        last = record;
    }
    ASSERT_TRUE(entered);
    const auto offs = Of(show, 0x80, 0);
    ASSERT_FALSE(offs.empty());
    // The first cycles were filled before the command.
    EXPECT_EQ(offs.back().message.data1, 60);
    EXPECT_TRUE(std::ranges::any_of(offs, [&](const auto& off) { return off.time == *entered; }));
    const auto strikes = Of(show, 0x90, 0);
    EXPECT_EQ(strikes.back().message.data1, 60);  // as written
    EXPECT_EQ(strikes.back().time, *entered);
    EXPECT_EQ(Of(show, 0x90, 1).size(), 4u);  // not muted in its song
    EXPECT_EQ(show.Deaf()[0].controllers.at(64), 0);
    EXPECT_EQ(show.Deaf().WhatSounds(), "");
}

TEST(TransportShow, TempoAndTranspositionStopAtTheirLimitsAndStayOnlyWhereTheyAreHeld) {
    OfflineShow show({}, {}, ShowOfSongs({Song("One", 1), Song("Two", 1)}, AfterSong::kWait));
    const auto now = [&] { return show.GetTransport().GetSnapshot(); };
    for (int step = 0; step < 100; ++step) {
        show.Do("tempo up");
        show.Do("transpose down");
    }
    EXPECT_EQ(now()->tempoScale, 2);
    EXPECT_EQ(now()->transposition, -12);
    show.Do("hold on");
    show.Do("next song");
    EXPECT_EQ(now()->tempoScale, 2);
    EXPECT_EQ(now()->transposition, -12);
    show.Do("hold off");
    show.Do("previous song");
    EXPECT_EQ(now()->tempoScale, 1);
    EXPECT_EQ(now()->transposition, 0);
    EXPECT_FALSE(show.Do("conduct beat").done);
}

TEST(TransportShow, TheSetListChangesUnderTheMusicAndLeavesOutWhatCannotBePlayed) {
    ShowSong broken;
    broken.key = broken.title = "broken";
    broken.fault = "missing.mid: cannot be read";
    OfflineShow show({}, {}, ShowOfSongs({Song("a", 1), broken, Song("b", 1), Song("c", 1)}, AfterSong::kWait));
    using List = std::vector<std::string>;
    EXPECT_EQ(SetList(show), (List{"a*", "broken", "b", "c"}));
    EXPECT_EQ(show.GetTransport().GetSnapshot()->nextEntry, 2u);
    EXPECT_EQ(show.Do("select song broken").message, "'broken' cannot be played: missing.mid: cannot be read");
    EXPECT_TRUE(show.Do("skip").done);  // what is shown as next
    EXPECT_EQ(SetList(show), (List{"a*", "broken", "c"}));
    EXPECT_TRUE(show.Do("insert b 1").done);
    EXPECT_EQ(SetList(show), (List{"b", "a*", "broken", "c"}));
    EXPECT_TRUE(show.Do("move 2 4").done);
    EXPECT_EQ(SetList(show), (List{"b", "broken", "c", "a*"}));
    EXPECT_TRUE(show.Do("move 4 3").done);
    EXPECT_EQ(SetList(show), (List{"b", "broken", "a*", "c"}));
    EXPECT_FALSE(show.Do("move 5 1").done);
    EXPECT_FALSE(show.Do("insert c 7").done);
    int waits = 0;
    EXPECT_EQ(show.Run([&](OfflineShow& running, const TransportSnapshot& snapshot) {
        ++waits;
        EXPECT_EQ(snapshot.state, TransportState::kWaiting);
        EXPECT_EQ(snapshot.title, "c");
        running.Do("play");
    }),
              TransportState::kEnded);
    EXPECT_EQ(waits, 1);
}

TEST(TransportShow, AProgramOfTheOperatorsIsSentWhenChosenAndAtEveryStartUntilTheSongsAreFollowedAgain) {
    ShowSong song = Song("One", 2);
    song.patches = {{"brass", {{1, 57}, {2, 58}}}};
    OfflineShow show({}, {}, ShowOfSongs({song, Song("Two", 1)}, AfterSong::kWait));
    const auto programs = [&] {
        std::vector<int> sent;
        for (const auto& one : Of(show, 0xC0, 0))
            sent.push_back(one.message.data1 + 1);
        return sent;
    };
    EXPECT_TRUE(show.Do("program 1 20").done);
    EXPECT_FALSE(show.Do("program 9 20").done);
    EXPECT_EQ(programs(), (std::vector{20}));
    show.Do("next song");
    show.Do("previous song");
    show.Run([](OfflineShow& running, const TransportSnapshot&) { running.Leave(); });
    EXPECT_EQ(programs(), (std::vector{20, 20}));
    show.Do("previous song");
    EXPECT_TRUE(show.Do("next patch").done);
    EXPECT_EQ(show.GetTransport().GetSnapshot()->patch, "brass");
    EXPECT_FALSE(show.Do("next patch").done);
    EXPECT_EQ(programs().back(), 57);
    show.Do("follow programs");
    show.Run([](OfflineShow& running, const TransportSnapshot&) { running.Leave(); });
    EXPECT_EQ(programs().back(), 6);
}

}  // namespace
}  // namespace player
