#include "player/show_state.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>

#include "tests/midi/message_of.h"

namespace player {
namespace {

ShowState WithEverything() {
    ShowState state;
    state.setList = {{"market", AfterSong::kGo}, {"bow", AfterSong::kWait}, {"market", AfterSong::kStop}};
    state.entry = 2;
    state.song = "market";
    state.tick = 23040;
    state.bar = "12:3";
    state.tempoScale = 1.05;
    state.transposition = -2;
    state.holds = true;
    state.mutes = {2, 10};
    state.trims = {{1, 80}, {16, 127}};
    state.programs = {{"bow", {{3, 74}}}, {"market", {{1, 1}, {3, 128}}}};
    return state;
}

constexpr const char* kEverything = R"({
  "version": 1,
  "song": "market",
  "bar": "12:3",
  "tick": 23040,
  "entry": 3,
  "tempoScale": 1.05,
  "transposition": -2,
  "holds": true,
  "mutes": [2, 10],
  "trims": {"1": 80, "16": 127},
  "programs": {"bow": {"3": 74}, "market": {"1": 1, "3": 128}},
  "setList": [
    {"song": "market", "then": "go"},
    {"song": "bow", "then": "wait"},
    {"song": "market", "then": "stop"}
  ]
}
)";

constexpr const char* kNothing = R"({
  "version": 1,
  "tick": 0,
  "tempoScale": 1.0,
  "transposition": 0,
  "holds": false,
  "mutes": [],
  "trims": {},
  "programs": {},
  "setList": []
}
)";

/// The text with the first `from` replaced.
std::string Changed(std::string text, const std::string& from, const std::string& to) {
    const auto at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

std::string Refusal(const std::string& json) {
    return MessageOf<std::invalid_argument>([&] { ShowState::Parse(json); });
}

TEST(ShowState, ComesBackAsItWasWritten) {
    EXPECT_EQ(WithEverything().AsJson(), kEverything);
    EXPECT_EQ(ShowState().AsJson(), kNothing);
    EXPECT_EQ(ShowState::Parse(kEverything), WithEverything());
    EXPECT_EQ(ShowState::Parse(kNothing), ShowState());
    EXPECT_EQ(ShowState::PathFor("shows/The Band.json"), std::filesystem::path("shows/The Band.json.state"));
}

TEST(ShowState, RefusesInOneLineWhatNoPlayerOfThisKindHasWritten) {
    const struct {
        std::string from, to, refusal;
    } rows[] = {
        {"\"version\": 1,", "\"version\": 2,", "/version: 2 is refused: allowed is 1: another player has written it"},
        {"\"version\": 1,", "", "/version: nothing stands here: it is needed"},
        {"\"tick\": 23040,", "", "/tick: nothing stands here: it is needed"},
        {"23040", "-1", "/tick: -1 is refused: allowed are whole numbers from 0 to 4294901760"},
        {"23040", "4294901761", "/tick: 4294901761 is refused: allowed are whole numbers from 0 to 4294901760"},
        {"23040", "\"a\\nb\"", "/tick: \"a\\nb\" is refused: allowed are whole numbers from 0 to 4294901760"},
        {"\"12:3\"", "\"12:0\"", "/bar: \"12:0\" is refused: allowed are \"BAR\" and \"BAR:BEAT\", from 1"},
        {"\"song\": \"market\"", "\"song\": \"\"", "/song: \"\" is refused: allowed is a song's key"},
        {"\"entry\": 3", "\"entry\": 4", "/entry: 4 is refused: allowed are whole numbers from 1 to 3"},
        {"1.05", "2.01", "/tempoScale: 2.01 is refused: allowed are numbers from 0.5 to 2"},
        {"1.05", "1e999", "line 7, column 21: number overflow parsing '1e999'"},
        {"-2,", "-13,", "/transposition: -13 is refused: allowed are whole numbers from -12 to 12"},
        {"true", "1", "/holds: 1 is refused: allowed are true and false"},
        {"[2, 10]", "[2, 2]", "/mutes/1: 2 is refused: allowed is each channel once"},
        {"\"1\": 80", "\"01\": 80", "/trims/01: no channel: allowed are \"1\" to \"16\""},
        {"127", "128", "/trims/16: 128 is refused: allowed are whole numbers from 0 to 127"},
        {"128", "0", "/programs/market/3: 0 is refused: allowed are whole numbers from 1 to 128"},
        {"{\"3\": 74}", "[]", "/programs/bow: [] is refused: allowed is an object: {...}"},
        {", \"then\": \"wait\"", "", "/setList/1/then: nothing stands here: it is needed"},
        {"\"wait\"}", "\"wait\", \"x/y\": 1}", "/setList/1/x~1y: 1 stands under an unknown name"},
        {"\"holds\"", "\"encore\": 1, \"holds\"", "/encore: 1 stands under an unknown name"},
    };
    for (const auto& [from, to, refusal] : rows)
        EXPECT_EQ(Refusal(Changed(kEverything, from, to)), refusal) << from << " -> " << to;
    EXPECT_EQ(Refusal("[]"), "the state: [] is refused: allowed is an object: {...}");
    EXPECT_EQ(Refusal(Changed(kNothing, "\"mutes\"", "\"entry\": 1, \"mutes\"")),
              "/entry: 1 is refused: allowed is nothing: the set list is empty");
}

TEST(ShowState, AnyDamageIsRefusedInOneLineOrDoesNoHarm) {
    const std::string whole = kEverything;
    const auto judge = [](const std::string& json) {
        std::string refusal = Refusal(json);
        EXPECT_FALSE(refusal.empty());
        EXPECT_EQ(refusal.find('\n'), std::string::npos) << refusal;
        return refusal;
    };
    // All but the line end at the end is needed.
    for (std::size_t length = 0; length + 1 < whole.size(); ++length)
        EXPECT_NE(judge(whole.substr(0, length)), "accepted") << length;
    constexpr std::uint32_t kSeed = 20;
    std::mt19937 random(kSeed);
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = whole;
        for (unsigned change = 0; change <= random() % 3; ++change)
            damaged[random() % damaged.size()] = static_cast<char>(random() % 256);
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", round " + std::to_string(round));
        if (judge(damaged) == "accepted")
            ShowState::Parse(ShowState::Parse(damaged).AsJson());
    }
    judge(std::string(100000, '['));
    judge(std::string(1000, '\0'));
}

}  // namespace
}  // namespace player
