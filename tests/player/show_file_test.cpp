#include "player/show_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/midi/message_of.h"
#include "tests/player/temporary_folder.h"
#include "zell/errors.h"

namespace {

namespace fs = std::filesystem;
using player::AfterSong;
using player::BarBeat;
using player::ParseShowFile;
using player::ShowDocument;
using player::ShowPlace;

using Lines = std::vector<std::string>;

Lines FaultsOf(const auto& action) {
    try {
        action();
        return {};
    } catch (const player::ShowFileError& error) {
        return error.GetFaults();
    }
}

Lines FaultsIn(const std::string& text) {
    return FaultsOf([&] { ParseShowFile(text, "a.json"); });
}

/// A show of one song, and what else is given of the song and of the show.
std::string WithSong(const std::string& song, const std::string& show = "") {
    return R"({"title": "T", "kind": "programs", "songs": [{"key": "a", "file": "a.mid")" +
           (song.empty() ? "" : ", " + song) + "}]" + (show.empty() ? "" : ", " + show) + "}";
}

TEST(ShowFile, WhatIsLeftOutHasItsDefault) {
    const ShowDocument show =
        ParseShowFile(R"({"songs": [{"key": "b", "file": "x/b.mid"}, {"file": "a.mid", "key": "a", "clickTrack": {}}],)"
                      R"( "kind": "programs", "title": "Two"})",
                      "");
    EXPECT_EQ(show.kind, player::ShowKind::kPrograms);
    EXPECT_FALSE(show.timeCodeActive);
    ASSERT_EQ(show.setList.size(), 2u);  // every song in its order
    EXPECT_EQ(show.setList[0].song, "b");
    EXPECT_EQ(show.setList[1].song, "a");
    EXPECT_EQ(show.setList[1].then, AfterSong::kWait);
    EXPECT_FALSE(show.songs[0].number || show.songs[0].title || show.songs[0].start || show.songs[0].clickTrack);
    EXPECT_EQ(show.songs[0].countInBars, 0);
    EXPECT_EQ(show.songs[1].clickTrack->channel, 10);
    EXPECT_EQ(show.songs[1].clickTrack->note, 77);
    EXPECT_EQ(show.songs[1].clickTrack->accent, 76);
    EXPECT_FALSE(show.songs[1].clickTrack->muted);
    EXPECT_EQ(ParseShowFile(WithSong("", R"("setList": [{"song": "a"}])"), "").setList[0].then, AfterSong::kWait);
}

TEST(ShowFile, PlacesAreBarsBeatsOrTicks) {
    const struct {
        const char* text;
        ShowPlace place;
    } cases[] = {
        {"\"12\"", BarBeat{12, 1}},
        {"\"12:3\"", BarBeat{12, 3}},
        {"\"999999:999\"", BarBeat{999999, 999}},
        {"480", std::uint32_t{480}},
        {"0", std::uint32_t{0}},
        {"480.0", std::uint32_t{480}},
        {"4294901760", std::uint32_t{4294901760}},
    };
    for (const auto& [text, place] : cases)
        EXPECT_EQ(*ParseShowFile(WithSong(std::string("\"start\": ") + text), "").songs[0].start, place) << text;
}

TEST(ShowFile, EveryFaultIsNamedAtOnceWithItsPlaceItsValueAndWhatIsAllowed) {
    EXPECT_EQ(
        FaultsIn(
            R"({"titel": "T", "kind": "songs", "mutes": [1, 17, 1], "songs": [)"
            R"({"key": "a", "file": "a.mid", "countInBars": 9, "tempoScales": [{"from": "1", "to": "x"}]},)"
            R"({"key": "a", "file": 5, "marker": [], "pauses": ["0:1"], "tracks": {"0": {}, "2": {"range": [9, 2]}}}],)"
            R"( "setList": [{"song": "A", "then": "play"}], "timeCode": 1})"),
        (Lines{
            "/title: nothing stands here: it is needed",
            "/kind: \"songs\" is refused: allowed are \"programs\", \"ranges\"",
            "/mutes/1: 17 is refused: allowed are whole numbers from 1 to 16",
            "/mutes/2: 1 is refused: allowed is each channel once",
            "/songs/0/countInBars: 9 is refused: allowed are whole numbers from 0 to 8",
            std::string("/songs/0/tempoScales/0/to: \"x\" is refused: allowed are \"BAR\" and \"BAR:BEAT\", ") +
                "from 1, and a tick from 0 to 4294901760",
            "/songs/0/tempoScales/0/factor: nothing stands here: it is needed",
            "/songs/1/key: \"a\" is refused: allowed is what no other has, and /songs/0 has it already",
            "/songs/1/file: 5 is refused: allowed is the path of a MIDI file, with / between folders",
            std::string("/songs/1/pauses/0: \"0:1\" is refused: allowed are \"BAR\" and \"BAR:BEAT\", from 1, and a "
                        "tick from 0 "
                        "to 4294901760"),
            "/songs/1/tracks/0: no channel: allowed are \"1\" to \"16\"",
            "/songs/1/tracks/2/range: [9,2] is refused: allowed are the lowest and the highest note: [36, 96]",
            std::string(
                "/songs/1/marker: [] stands under an unknown name: the nearest known is \"markers\" of \"key\", "
                "\"file\", "
                "\"number\", \"title\", \"start\", \"countInBars\", \"tempoScales\", \"transpositions\", \"clicks\", "
                "\"markers\", \"pages\", \"pauses\", \"tracks\", \"patches\", \"clickTrack\""),
            "/setList/0/song: \"A\" is refused: allowed are the keys of the songs, of which the nearest is \"a\"",
            "/setList/0/then: \"play\" is refused: allowed are \"stop\", \"wait\", \"go\"",
            "/timeCode: 1 is refused: allowed is an object: {...}",
            std::string(
                "/titel: \"T\" stands under an unknown name: the nearest known is \"title\" of \"title\", \"kind\", "
                "\"groups\", \"trims\", \"mutes\", \"songs\", \"setList\", \"timeCode\", \"showControl\""),
        }));
    EXPECT_EQ(MessageOf<player::ShowFileError>(
                  [] { ParseShowFile(WithSong("\"number\": 0, \"title\": 1"), "shows/a.json"); }),
              "shows/a.json: /songs/0/number: 0 is refused: allowed are whole numbers from 1 to 999999 (and 1 more)");
}

TEST(ShowFile, SpansOfOneKindDoNotOverlap) {
    const auto spans = [](const std::string& list) { return FaultsIn(WithSong("\"clicks\": [" + list + "]")); };
    const auto span = [](const std::string& from, const std::string& to) {
        return R"({"from": )" + from + R"(, "to": )" + to + R"(, "notated32": 8})";
    };
    const std::string at = "/songs/0/clicks/";
    EXPECT_EQ(spans(span("\"5\"", "\"9\"") + "," + span("\"1\"", "\"5:1\"") + "," + span("\"9\"", "\"10\"")), Lines());
    EXPECT_EQ(spans(span("\"5\"", "\"9\"") + "," + span("\"1\"", "\"5:2\"")),
              (Lines{at + "0: \"5\" to \"9\" is refused: allowed is no overlap with " + at + "1, \"1\" to \"5:2\""}));
    // The long one meets both, though they are no neighbours.
    EXPECT_EQ(spans(span("0", "100") + "," + span("10", "20") + "," + span("99", "120")),
              (Lines{at + "1: 10 to 20 is refused: allowed is no overlap with " + at + "0, 0 to 100",
                     at + "2: 99 to 120 is refused: allowed is no overlap with " + at + "0, 0 to 100"}));
    EXPECT_EQ(spans(span("0", "100") + "," + span("\"1\"", "\"9\"")), Lines());  // only the song can tell
    EXPECT_EQ(spans(span("\"5\"", "\"5\"")),
              (Lines{at + "0/to: \"5\" is refused: allowed is a place behind the start, \"5\""}));
    EXPECT_EQ(spans(span("7", "6")), (Lines{at + "0/to: 6 is refused: allowed is a place behind the start, 7"}));
}

TEST(ShowFile, WhatIsNoJsonIsRefusedWithItsLine) {
    std::string deep = "/songs/1";
    for (int level = 2; level < 32; ++level)
        deep += "/0";
    const struct {
        std::string text;
        std::string fault;
    } cases[] = {
        {"",
         "line 1, column 1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a "
         "literal"},
        {"{\"title\": \"T\"\n \"kind\"",
         "line 2, column 7: syntax error while parsing object - unexpected string literal; expected '}'"},
        {"\n\n{\"a\": tru }",
         "line 3, column 10: syntax error while parsing value - invalid literal; last read: '\"a\": tru '"},
        {"[1, 1e999]", "line 1, column 9: number overflow parsing '1e999'"},
        {"[\"\xFF\"]",
         "line 1, column 3: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; last read: "
         "'\"\xC3\xBF'"},
        {"{} {}", "line 1, column 4: syntax error while parsing value - unexpected '{'; expected end of input"},
        {"{\"songs\": [1, [" + std::string(31, '[') + "]", deep + ": nested too deep: allowed are 32 levels"},
    };
    for (const auto& [text, fault] : cases)
        EXPECT_EQ(FaultsIn(text), Lines{fault});
    EXPECT_EQ(FaultsIn(WithSong(R"("start": "1", "markers": [], "start": "2")", R"("title": "U")")),
              (Lines{"/songs/0/start: the name stands twice in its object: allowed is once",
                     "/title: the name stands twice in its object: allowed is once"}));
}

class ShowFileOnDisk : public ::testing::Test {
protected:
    const TemporaryFolder folder_;
};

TEST_F(ShowFileOnDisk, TheCommittedShowsAreAsThePlayerWritesThem) {
    for (const char* name : {"evening.json", "band.json"}) {
        const fs::path committed = fs::path(VEMO_SOURCE_DIR) / "shows" / name;
        player::WriteShowFile(player::ReadShowFile(committed), folder_ / name);
        EXPECT_EQ(TemporaryFolder::Contents(folder_ / name), TemporaryFolder::Contents(committed));
    }
}

TEST_F(ShowFileOnDisk, WhatCouldNotBeReadAgainIsNotWritten) {
    const fs::path file = folder_.Put("a.json", "old");
    ShowDocument show = ParseShowFile(WithSong(""), "");
    show.mutes = {17};
    show.trims = {{1, 80}};
    EXPECT_EQ(FaultsOf([&] { player::WriteShowFile(show, file); }).size(), 2u);
    show = ParseShowFile(WithSong(""), "");
    show.title = "Fl\xF6te";
    EXPECT_EQ(FaultsOf([&] { player::WriteShowFile(show, file); }),
              Lines{"a text of the show is not UTF-8: allowed is nothing else"});
    EXPECT_EQ(TemporaryFolder::Contents(file), "old");
}

TEST_F(ShowFileOnDisk, SavingTheBalanceChangesNothingElse) {
    const std::string song =
        R"([{"file": "a.mid", "key": "a", "tempoScales": [{"to": "9", "from": "1", "factor": 1.1}]}])";
    const fs::path file = folder_.Put("a.json", R"({"mutes": [4], "timeCode": {"active": false}, "songs": )" + song +
                                                    R"(, "kind": "ranges", "title": "T"})");
    player::SaveBalance(file, {{10, 0}, {2, 127}}, {1, 16});
    EXPECT_EQ(TemporaryFolder::Contents(file),
              "{\n  \"mutes\": [1, 16],\n  \"timeCode\": {\"active\": false},\n  \"trims\": {\"2\": 127, \"10\": 0},\n"
              "  \"songs\": [{\"file\": \"a.mid\", \"key\": \"a\", "
              "\"tempoScales\": [{\"to\": \"9\", \"from\": \"1\", \"factor\": 1.1}]}],\n"
              "  \"kind\": \"ranges\",\n  \"title\": \"T\"\n}\n");
    player::SaveBalance(file, {}, {});
    const ShowDocument show = player::ReadShowFile(file);
    EXPECT_TRUE(show.trims.empty() && show.mutes.empty());
    const fs::path programs = folder_.Put("p.json", WithSong(""));  // where even empty trims are refused
    player::SaveBalance(programs, {}, {5});
    EXPECT_EQ(player::ReadShowFile(programs).mutes, std::set<int>{5});

    const struct {
        std::string text;
        std::map<int, int> trims;
        std::set<int> mutes;
        std::string fault;
    } refused[] = {
        {WithSong(""),
         {{3, 80}},
         {},
         "/trims: {\"3\":80} is refused: allowed is nothing in a show of kind \"programs\", only in one of kind "
         "\"ranges\""},
        {"{",
         {},
         {1},
         "line 1, column 2: syntax error while parsing object key - unexpected end of input; expected string literal"},
    };
    for (const auto& [text, trims, mutes, fault] : refused) {
        const fs::path kept = folder_.Put("b.json", text);
        EXPECT_EQ(FaultsOf([&] { player::SaveBalance(kept, trims, mutes); }), Lines{fault});
        EXPECT_EQ(TemporaryFolder::Contents(kept), text);
    }
}

TEST_F(ShowFileOnDisk, AFileThatTheSystemWithholdsIsNoFaultyShow) {
    const auto refusal = [](const fs::path& path) {
        return MessageOf<zell::IoError>([&] { player::ReadShowFile(path); });
    };
    const std::string missing = (folder_ / "missing.json").string(), folder = folder_.GetPath().string();
    EXPECT_EQ(refusal(missing), "cannot read " + missing + ": No such file or directory");
    EXPECT_EQ(refusal(folder), "cannot read " + folder + ": it is a folder");
    const std::string fits = WithSong("") + std::string((4u << 20) - WithSong("").size(), ' ');
    EXPECT_EQ(refusal(folder_.Put("fits.json", fits)), "accepted");
    const std::string large = folder_.Put("large.json", fits + " ").string();
    EXPECT_EQ(refusal(large), "cannot read " + large + ": it is larger than 4 MiB");
}

}  // namespace
