#include "player/show_loading.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "player/midi_file_writer.h"
#include "player/show_commands.h"
#include "player/show_file.h"
#include "player/song_inspection.h"
#include "tests/player/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using player::MidiTrack;
using player::Show;
using player::ShowSong;
using Lines = std::vector<std::string>;

/// Eight bars of 4/4 at 96 ticks a quarter note, 100 of them a minute; tracks on
/// channels 1, 2 and 10, of which the second changes its program twice.
std::string SongBytes() {
    player::MidiFile file{"", 1, 96, {}};
    MidiTrack& score = file.tracks.emplace_back();
    score.AddMeta(0, 0x03, "Eight Bars");
    score.AddMeta(0, 0x51, "\x09\x27\xC0");
    score.AddMeta(384, 0x06, "Two");
    score.AddMeta(768, 0x06, "Three");
    score.EndAt(3072);
    for (const std::uint8_t channel : {0, 1, 9}) {
        MidiTrack& track = file.tracks.emplace_back();
        if (channel == 1)
            track.AddMessage(0, 0xC1, 40, 0);
        track.AddMessage(10, static_cast<std::uint8_t>(0x90 | channel), 60, 100);
        track.AddMessage(90, static_cast<std::uint8_t>(0x80 | channel), 60, 64);
        if (channel == 1)
            track.AddMessage(1000, 0xC1, 41, 0);
    }
    const auto bytes = player::MidiFileWriter().Bytes(file);
    return {bytes.begin(), bytes.end()};
}

class ShowLoading : public ::testing::Test {
protected:
    ShowLoading() { folder_.Put("a.mid", SongBytes()); }

    /// A show of the song a.mid, with what is given of it.
    std::shared_ptr<const Show> Load(const std::string& song, const std::string& show = "\"kind\": \"programs\"",
                                     bool allowOutside = false) const {
        const std::string text =
            R"({"title": "T", "songs": [{"key": "a", )" +
            (song.find("\"file\"") == song.npos ? "\"file\": \"a.mid\"" : std::string("\"number\": 1")) +
            (song.empty() ? "" : ", " + song) + "}], " + show + "}";
        return LoadText(text, allowOutside);
    }
    std::shared_ptr<const Show> LoadText(const std::string& text, bool allowOutside = false) const {
        return player::LoadShow(player::ParseShowFile(text, "s.json"), folder_ / "s.json", allowOutside);
    }
    Lines Faults(const std::string& song) const { return Load(song)->GetSongs()[0].faults; }

    const TemporaryFolder folder_;
};

/// "start-end=value" for each.
std::string Text(const auto& spans) {
    std::ostringstream text;
    for (const auto& span : spans)
        text << (text.tellp() > 0 ? " " : "") << span.start() << '-' << span.end() << '=' << span.value();
    return text.str();
}

TEST_F(ShowLoading, WhatTheShowSaysOfASongIsInTheSong) {
    const auto show = Load(
        R"("number": 7, "title": "Other", "start": "2:3", "countInBars": 2, "pauses": ["4", 3072, "3:2", "3:2"],
           "tempoScales": [{"from": "2", "to": "3:2", "factor": 0.5}, {"from": 1000, "to": "9", "factor": 2}],
           "transpositions": [{"from": "1", "to": 384, "semitones": -2}],
           "clicks": [{"from": "8:4", "to": "9", "notated32": 4}],
           "markers": [{"at": "3", "text": "III"}, {"at": 100, "text": "Early"}],
           "pages": [{"at": "5", "number": 12}],
           "tracks": {"1": {"name": "Harp", "program": 47}, "2": {"program": 1}},
           "patches": [{"name": "P", "programs": {"10": 1}}], "clickTrack": {"channel": 16})");
    const ShowSong& song = show->GetSongs()[0];
    ASSERT_EQ(song.faults, Lines());
    EXPECT_EQ(song.fault, "");
    EXPECT_EQ(song.title, "Other");
    EXPECT_EQ(song.pauses, (std::vector<std::uint32_t>{864, 1152, 3072}));
    EXPECT_EQ(song.countInBars, 2);
    EXPECT_EQ(song.patches.size(), 1u);
    EXPECT_EQ(song.clickTrack->channel, 16);
    const player::ImportedSong& built = *song.song;
    EXPECT_EQ(built.log.GetSongName(), "Other");
    EXPECT_EQ(built.log.GetSongNumber(), "7");
    EXPECT_EQ(built.song.GetSongStartTickIndex(), 576u);
    EXPECT_EQ(Text(built.log.GetTempoScales()), "384-864=0.5 1000-3072=2");
    EXPECT_EQ(built.log.GetTranspositions().front().int_value(), -2);
    EXPECT_EQ(built.log.GetTranspositions().front().end(), 384u);
    EXPECT_EQ(built.log.GetClicks().front().int_value(), 4);
    EXPECT_EQ(built.log.GetClicks().front().start(), 2976u);
    std::string markers;
    for (const CL::Marker& marker : built.log.GetMarkers())
        markers += std::to_string(marker.abs_time()) + " " + marker.value() + "; ";
    EXPECT_EQ(markers, "100 Early; 384 Two; 768 III; ");
    EXPECT_EQ(built.song.GetTimeline().GetPageNums().front().abs_time(), 1536u);
    // 0.6 s a quarter note: 32 of them, five at half the tempo, and 2072 ticks of 96 at twice the tempo.
    EXPECT_EQ(player::LengthOf(built), "0:15.7");

    const auto& tracks = built.song.GetVoiceData();
    EXPECT_EQ(tracks.at(0).GetTrackName(), "Harp");
    EXPECT_EQ(tracks.at(0).GetDefaultProgramChange(), 46);
    EXPECT_EQ(tracks.at(1).GetTrackName(), "Channel 2");
    EXPECT_EQ(tracks.at(1).GetDefaultProgramChange(), 0);
    EXPECT_EQ(tracks.at(1).GetEvents().front().message.data1, 0);  // or the file's own would undo it
    EXPECT_EQ(tracks.at(1).GetEvents().back().message.data1, 41);
    EXPECT_EQ(tracks.at(9).GetNoteRange(), std::pair(std::uint8_t{0}, std::uint8_t{127}));
}

TEST_F(ShowLoading, InAShowOfRangesPercussionStaysUntransposedUnlessItHasARange) {
    const auto range = [this](const std::string& tracks, unsigned short id) {
        const auto [low, high] =
            Load(tracks, "\"kind\": \"ranges\"")->GetSongs()[0].song->song.GetVoiceData().at(id).GetNoteRange();
        return std::pair<int, int>(low, high);
    };
    EXPECT_EQ(range("", 0), std::pair(0, 127));
    EXPECT_EQ(range("", 9), std::pair(255, 255));
    EXPECT_EQ(range(R"("tracks": {"10": {"name": "Kit"}})", 9), std::pair(255, 255));
    EXPECT_EQ(range(R"("tracks": {"10": {"range": [40, 50]}})", 9), std::pair(40, 50));
    EXPECT_EQ(range(R"("tracks": {"1": {"range": [36, 96]}})", 0), std::pair(36, 96));
}

TEST_F(ShowLoading, WhatTheSongDoesNotHaveIsAFaultOfTheSongWithItsPlace) {
    const struct {
        std::string song;
        Lines faults;
    } cases[] = {
        {R"("start": "9", "markers": [{"at": "3:5", "text": "x"}], "pages": [{"at": 3073, "number": 1}])",
         {"/songs/0/start: \"9:1\" is refused: allowed are the beats of the song, of which the last is 8:4",
          "/songs/0/markers/0/at: \"3:5\" is refused: allowed are the beats of the song, of which the last is 8:4",
          "/songs/0/pages/0/at: 3073 is refused: allowed are ticks from 0 to the song's end, 3072"}},
        {R"("transpositions": [{"from": "9", "to": "9:2", "semitones": 1}])",
         {"/songs/0/transpositions/0/from: \"9:1\" is refused: allowed are the beats of the song, of which the last is "
          "8:4",
          "/songs/0/transpositions/0/to: \"9:2\" is refused: allowed are the beats of the song, of which the last is "
          "8:4, and 9, its end"}},
        {R"("tempoScales": [{"from": "1", "to": "3", "factor": 1}, {"from": 767, "to": 900, "factor": 1},
            {"from": "4", "to": 1152, "factor": 1}])",
         {"/songs/0/tempoScales/1: start of a tempo scale 767 is refused: no tempo scale may overlap another",
          "/songs/0/tempoScales/2: end of a tempo scale 1152 is refused: allowed are ticks after its start, 1152"}},
        {R"("pauses": ["1", "2"])",
         {"/songs/0/pauses/0: \"1:1\" is refused: allowed are places behind the start of the song"}},
        {R"("tracks": {"3": {}}, "patches": [{"name": "P", "programs": {"1": 1, "4": 1}}], "clickTrack": {})",
         {"/songs/0/tracks/3: no track of the song plays on this channel: allowed are 1, 2, 10",
          "/songs/0/patches/0/programs/4: no track of the song plays on this channel: allowed are 1, 2, 10",
          "/songs/0/clickTrack/channel: 10 is refused: allowed are channels that no track of the song plays on, which "
          "are not 1, 2, 10"}},
        {R"("file": "missing.mid")",
         {"/songs/0/file: " + (folder_ / "missing.mid").string() +
          ": byte 0: cannot be opened: No such file or directory"}},
        {R"("file": "s.txt")",
         {"/songs/0/file: " + (folder_ / "s.txt").string() +
          ": byte 0: not a standard MIDI file: it does not begin with MThd"}},
    };
    folder_.Put("s.txt", "no song");
    for (const auto& [song, faults] : cases) {
        const auto show = Load(song);
        EXPECT_EQ(show->GetSongs()[0].faults, faults) << song;
        EXPECT_FALSE(show->GetSongs()[0].song);
        EXPECT_TRUE(show->GetData().empty());
    }
    EXPECT_EQ(Load(cases[2].song)->GetSongs()[0].fault, cases[2].faults[0] + " (and 1 more)");
}

TEST_F(ShowLoading, AShowWithABrokenSongLoadsWithTheOthers) {
    const auto show =
        LoadText(R"({"title": "T", "kind": "ranges", "groups": [{"number": 255, "name": "G", "channels": [1, 16]}],
            "songs": [{"key": "z", "file": "a.mid"}, {"key": "m", "file": "m.mid", "title": "Missing"},
                      {"key": "n", "file": "n.mid"}, {"key": "a", "file": "a.mid"}]})");
    std::string playable;
    for (const auto& [key, song] : show->GetData())
        playable += key;
    EXPECT_EQ(playable, "za");
    EXPECT_EQ(show->GetData().GetGroups().GetGroup(255), (std::set<unsigned short>{0, 15}));
    EXPECT_EQ(show->IndexOf("a"), 3u);
    EXPECT_THROW(show->IndexOf("A"), std::out_of_range);
    EXPECT_EQ(show->GetSongs()[1].title, "Missing");
    EXPECT_EQ(show->GetSongs()[2].title, "n.mid");
    EXPECT_EQ(show->GetSongs()[3].title, "Eight Bars");
    EXPECT_EQ(show->GetSongs()[3].number, 4);
}

TEST_F(ShowLoading, ACueIsASongOfThatNumberElseAMarkerOfOne) {
    const auto show = LoadText(R"({"title": "T", "kind": "programs", "showControl": {"input": "Desk"},
            "songs": [{"key": "a", "file": "a.mid", "number": 7}, {"key": "b", "file": "missing.mid"},
                      {"key": "c", "file": "a.mid", "number": 1,
                       "markers": [{"at": 0, "text": "1"}, {"at": 96, "text": "Verse"}]}]})");
    using Cue = std::pair<std::size_t, std::optional<std::uint32_t>>;
    EXPECT_EQ(show->FindCue("7"), Cue(0, std::nullopt));
    EXPECT_EQ(show->FindCue("2"), Cue(1, std::nullopt));
    EXPECT_EQ(show->FindCue("7.2"), Cue(0, 768));
    EXPECT_EQ(show->FindCue("1.2"), Cue(2, 96));
    for (const char* cue :
         {"", "3", "07", "7.", "7.0", "7.3", "7.2.1", "7.2x", "7.02", "2.1", ".1", "7.18446744073709551617"})
        EXPECT_THROW(show->FindCue(cue), std::invalid_argument) << cue;
}

TEST_F(ShowLoading, ADoubtfulCueIsRefusedWhereADeskIsObeyed) {
    const std::string songs =
        R"({"title": "T", "kind": "programs", "songs": [{"key": "a", "file": "a.mid", "number": 2},
        {"key": "b", "file": "a.mid", "markers": [{"at": 0, "text": "One"}, {"at": 96, "text": "3"}]}])";
    EXPECT_EQ(LoadText(songs + "}")->GetSongs()[1].number, 2);
    try {
        LoadText(songs + R"(, "showControl": {"input": "Desk"}})");
        FAIL() << "it was loaded";
    } catch (const player::ShowFileError& error) {
        EXPECT_EQ(error.GetFaults(),
                  (Lines{"/songs/1/number: 2 is the number of 'Eight Bars' too: show control could mean either",
                         "/songs/1: its marker 2 is called '3': show control could mean either"}));
    }
}

TEST_F(ShowLoading, SongsStayBelowTheFolderUnlessTheOperatorSaysOtherwise) {
    const TemporaryFolder elsewhere;
    elsewhere.Put("b.mid", SongBytes());
    fs::create_directories(folder_ / "sub/deep");
    fs::copy(folder_ / "a.mid", folder_ / "sub/a.mid");
    fs::create_symlink(elsewhere / "b.mid", folder_ / "link.mid");
    fs::create_directory_symlink(elsewhere.GetPath(), folder_ / "way_out");
    fs::create_symlink("../sub/a.mid", folder_ / "sub/inside.mid");
    fs::create_symlink("loop.mid", folder_ / "loop.mid");
    const std::string sibling = "../" + elsewhere.GetPath().filename().string() + "/b.mid";
    const struct {
        std::string path;
        bool inside;
    } cases[] = {
        {"a.mid", true},
        {"sub/a.mid", true},
        {"sub/deep/../../a.mid", true},
        {"sub/inside.mid", true},
        {"link.mid", false},
        {"way_out/b.mid", false},
        {sibling, false},
        {"sub/../" + sibling, false},
        {(elsewhere / "b.mid").string(), false},
        {(folder_ / "a.mid").string(), false},
    };
    for (const auto& [path, inside] : cases) {
        const std::string song = "\"file\": \"" + path + "\"";
        EXPECT_EQ(Faults(song), inside ? Lines()
                                       : Lines{"/songs/0/file: \"" + path +
                                               "\" is refused: allowed are paths to below the folder of the show"});
        EXPECT_TRUE(Load(song, "\"kind\": \"programs\"", true)->GetSongs()[0].song) << path;
    }
    EXPECT_EQ(Faults("\"file\": \"loop.mid\""),
              Lines{"/songs/0/file: \"loop.mid\" is refused: Too many levels of symbolic links"});

    // A show file named without its folder, as a shell in that folder does.
    const fs::path before = fs::current_path();
    fs::current_path(folder_.GetPath());
    const auto document = player::ParseShowFile(
        R"({"title": "T", "kind": "programs", "songs": [{"key": "a", "file": "a.mid"},
            {"key": "b", "file": "way_out/b.mid"}]})",
        "");
    const auto show = player::LoadShow(document, "s.json", false);
    fs::current_path(before);
    EXPECT_TRUE(show->GetSongs()[0].song);
    EXPECT_FALSE(show->GetSongs()[1].song);
}

TEST_F(ShowLoading, ANewShowNamesItsSongsFromItsOwnFolder) {
    fs::create_directories(folder_ / "songs");
    fs::create_directories(folder_ / "shows");
    folder_.Put("songs/a.mid", SongBytes());
    folder_.Put("songs/bad.mid", "no song");
    const fs::path file = folder_ / "My Show.json", inside = folder_ / "shows/s.json";
    const std::string one = (folder_ / "a.mid").string(), other = (folder_ / "songs/a.mid").string();
    const auto outcome = [](const fs::path& path, const Lines& files, bool overwrite) {
        ::testing::internal::CaptureStderr();
        const int status = player::NewShow(path, files, overwrite);
        return std::to_string(status) + " " + ::testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(outcome(file, {one, other, one}, false), "0 ");
    const auto show = player::ReadShowFile(file);
    EXPECT_EQ(show.title, "My Show");
    std::string songs;
    for (const auto& song : show.songs)
        songs += song.key + "=" + song.file + "; ";
    EXPECT_EQ(songs, "a=a.mid; a 2=songs/a.mid; a 3=a.mid; ");

    const std::string before = TemporaryFolder::Contents(file);
    EXPECT_EQ(outcome(file, {other}, false),
              "2 vemo_player: " + file.string() + ": is there already, and only --overwrite replaces it\n");
    const std::string bad = (folder_ / "songs/bad.mid").string(), missing = (folder_ / "no.mid").string();
    EXPECT_EQ(outcome(file, {one, bad, missing}, true),
              "2 vemo_player: " + bad +
                  ": byte 0: not a standard MIDI file: it does not begin with MThd\nvemo_player: " + missing +
                  ": byte 0: cannot be opened: No such file or directory\n");
    EXPECT_EQ(TemporaryFolder::Contents(file), before);
    EXPECT_EQ(outcome(file, {other}, true), "0 ");
    EXPECT_EQ(
        outcome(inside, {other}, false),
        "0 vemo_player: warning: /songs/0/file: \"../songs/a.mid\" is refused: allowed are paths to below the folder "
        "of the show; it is taken with --allow-outside alone\n");
    EXPECT_EQ(player::ReadShowFile(inside).songs[0].file, "../songs/a.mid");
}

}  // namespace
