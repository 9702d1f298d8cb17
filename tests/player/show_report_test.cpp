#include "player/show_report.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "tests/player/offline_show.h"
#include "vemo_core/song_builder.h"

namespace player {
namespace {

using Json = nlohmann::json;
using testing::ElementsAre;

constexpr unsigned kResolution = 96;
constexpr std::uint32_t kBar = 4 * kResolution;

/// 60 seconds at the usual tempo. The first track begins with program 5 and changes in
/// the song, the second has but its own.
ImportedSong Song() {
    SongBuilder builder(kResolution);
    std::vector<vemo_midi::VoiceEvent> changing;
    changing.emplace_back(kBar, 0xC0, 0, 10, 0);
    changing.emplace_back(kBar, 0x90, 0, 60, 90);
    changing.emplace_back(2 * kBar, 0xC0, 0, 20, 0);
    std::vector<vemo_midi::VoiceEvent> still;
    still.emplace_back(0, 0x90, 1, 60, 90);
    builder.Title(1, "Song").Track(0, "changing", 0, 127, 5, std::move(changing));
    builder.Track(1, "still", 0, 127, 7, std::move(still)).EndAt(30 * kBar);
    return {builder.BuildSong(), builder.BuildLog(), "Song", {}};
}

/// The second of three songs.
TransportSnapshot Playing(std::shared_ptr<const Show> show) {
    TransportSnapshot snapshot;
    snapshot.state = TransportState::kPlaying;
    snapshot.show = std::move(show);
    for (std::size_t song = 0; song < 3; ++song)
        snapshot.setList.push_back({song, AfterSong::kGo});
    snapshot.entry = 1;
    snapshot.song = 2;
    snapshot.tracks = {{1, "changing", 6, false, 100, false}, {2, "still", 8, false, 100, false}};
    return snapshot;
}

PlaybackRecord Heard(unsigned int song, std::uint32_t tick) {
    PlaybackRecord heard;
    heard.song = song;
    heard.tick = tick;
    return heard;
}

TEST(ShowReport, ATrackHasTheProgramThatIsInForceAtThePlace) {
    ShowReport report;
    TransportSnapshot snapshot = Playing(ShowOf({Song(), Song(), Song()}));
    struct Row {
        std::uint32_t tick;
        int program;
    };
    for (const Row& row :
         {Row{0, 6}, {kBar - 1, 6}, {kBar, 11}, {2 * kBar - 1, 11}, {2 * kBar, 21}, {29 * kBar, 21}, {kBar, 11}}) {
        EXPECT_THAT(report.ProgramsOf(snapshot, Heard(2, row.tick)), ElementsAre(row.program, 8)) << row.tick;
        snapshot.tick = row.tick;
        EXPECT_THAT(report.ProgramsOf(snapshot, std::nullopt), ElementsAre(row.program, 8)) << row.tick;
        const Json state = Json::parse(report.StateOf(snapshot, std::nullopt, {{}, {}, {}, {}, {3, 3}}));
        EXPECT_EQ(state["tracks"][0]["program"], row.program) << row.tick;
    }
    snapshot.tick = 0;
    EXPECT_THAT(report.ProgramsOf(snapshot, Heard(1, 2 * kBar)), ElementsAre(6, 8)) << "the song before still sounds";
    snapshot.tracks[0].program = 100;
    snapshot.tracks[0].programIsUsers = true;
    EXPECT_THAT(report.ProgramsOf(snapshot, Heard(2, kBar)), ElementsAre(100, 8)) << "the operator's";
    EXPECT_TRUE(report.ProgramsOf({}, std::nullopt).empty());
}

TEST(ShowReport, WithoutAChangeTheShowFilesProgramComesBeforeTheTracks) {
    ShowDocument document;
    document.songs.resize(1);
    document.songs[0].tracks[2].program = 33;
    std::vector<ShowSong> songs(1);
    songs[0].key = "1";
    songs[0].song = std::make_shared<const ImportedSong>(Song());
    TransportSnapshot snapshot = Playing(std::make_shared<const Show>(document, "", songs));
    snapshot.setList = {{0, AfterSong::kStop}};
    snapshot.entry = 0;
    snapshot.song = 1;
    EXPECT_THAT(ShowReport().ProgramsOf(snapshot, Heard(1, kBar)), ElementsAre(11, 33));
}

TEST(ShowReport, WhatIsLeftOfTheShowCountsTheTempoScaleAsTheSongDoes) {
    ShowReport report;
    TransportSnapshot snapshot = Playing(ShowOf({Song(), Song(), Song()}));
    struct Row {
        double scale;
        bool holds;
        double seconds, length, showSeconds, showLength;
    };
    // Half a song, in the second of three of a minute each.
    for (const Row& row : {Row{1, false, 30, 60, 90, 180},
                           {2, false, 15, 30, 75, 150},
                           {2, true, 15, 30, 45, 90},
                           {0.5, true, 60, 120, 180, 360}}) {
        snapshot.tempoScale = row.scale;
        snapshot.holds = row.holds;
        const Json position = Json::parse(report.PositionOf(snapshot, Heard(2, 15 * kBar), {}, {}));
        EXPECT_DOUBLE_EQ(position["seconds"], row.seconds) << row.scale << row.holds;
        EXPECT_DOUBLE_EQ(position["length"], row.length) << row.scale << row.holds;
        EXPECT_DOUBLE_EQ(position["showSeconds"], row.showSeconds) << row.scale << row.holds;
        EXPECT_DOUBLE_EQ(position["showLength"], row.showLength) << row.scale << row.holds;
    }
}

}  // namespace
}  // namespace player
