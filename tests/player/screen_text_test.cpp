#include "player/screen_text.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <vector>

#include "player/operator_keys.h"
#include "player/screen_model.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using Keys = OperatorKeys;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const Keys::Time kNow{1h};

/// A show of three songs in the second one, playing, with so many tracks.
ScreenModel Playing(int tracks = 4) {
    std::string list;
    for (int channel = 1; channel <= tracks; ++channel)
        list += std::string(list.empty() ? "" : ",") + "{\"channel\":" + std::to_string(channel) + ",\"name\":\"Line " +
                std::to_string(channel) + "\",\"program\":12,\"programIsUsers\":true," +
                "\"trim\":80,\"muted\":" + (channel == 2 ? "true" : "false") + "}";
    ScreenModel model;
    model.isConnected = true;
    EXPECT_TRUE(model.Take(
        R"({"event":"state","state":{"state":"playing","show":{"title":"Evening","kind":"ranges"},)"
        R"("setList":[{"number":1,"title":"One","then":"stop","seconds":60,"fault":""},)"
        R"({"number":7,"title":"Zwei Brüder","then":"go","seconds":60,"fault":""},)"
        R"({"number":3,"title":"日本の歌","then":"stop","seconds":3600,"fault":"3.mid: cannot be read"}],)"
        R"("place":2,"nextPlace":3,"song":2,"title":"Zwei Brüder","number":7,"bars":96,"tempoScale":0.9,)"
        R"("transposition":2,"holds":true,"patch":"Organ","click":"off","songsLoaded":2,"songsToLoad":3,)"
        R"("device":{"name":"Synth","state":"stalled"},"messages":[{"number":41,"text":"a buffer is late"}],)"
        R"("tracks":[)" +
        list + "]}}"));
    EXPECT_TRUE(model.Take(
        R"({"event":"position","position":{"song":2,"bar":23,"beat":1,"countIn":false,"clock":0,"clocks":24,)"
        R"("tempo":108.0,"meter":"4/4","key":"D major","transposition":2,"marker":"Chorus","page":12,)"
        R"("hasPages":true,"seconds":30.4,"length":60,"showSeconds":90,"showLength":3720,"active":[3]}})"));
    return model;
}

std::vector<std::string> Draw(const ScreenModel& model, const Keys& keys, int columns, int rows, bool utf8 = true) {
    std::vector<std::string> texts;
    for (const ScreenText::Row& row : ScreenText::Draw(model, keys, {columns, rows, utf8, "20:15:33", kNow}))
        texts.push_back(ScreenText::TextOf(row));
    return texts;
}

std::string Joined(const std::vector<std::string>& rows) {
    std::string all;
    for (const std::string& row : rows)
        all += row + "\n";
    return all;
}

TEST(ScreenText, EightyByTwentyFourShowsAllOfAShow) {
    const std::string all = Joined(Draw(Playing(), Keys(), 80, 24));
    for (const char* wanted :
         {" PLAYING  SHOW MODE  Evening", "loading 2/3  ✗ Synth STALLED 20:15:33", " 7  Zwei Brüder",
          "2 of 3 \n ██████ ", "NEXT  3  日本の歌", "GOES ON AT ONCE", "Tempo  108.0   scale 90% HELD",
          "Meter  4/4   page 12", "Key    D major  (+2)", "Marker Chorus", "Patch  Organ   click off", "Song    0:30 [",
          "] -0:30", "of 96 bars", "Show    1:30 [", "] -1:00:30", "2 Line 2           12*  80% MUTED", "3 Line 3",
          "80%       ●", "BROKEN", "#41 a buffer is late", "x PANIC", "q quit",
          // 23:1; above, the lamp of a first beat is filled from its top row on
          " ██████  ██████ ██████       ██    "})
        EXPECT_THAT(all, HasSubstr(wanted));
    const std::string sixteen = Joined(Draw(Playing(16), Keys(), 80, 24));
    for (int channel = 1; channel <= 16; ++channel)
        EXPECT_THAT(sixteen, HasSubstr(" Line " + std::to_string(channel) + " "));
}

TEST(ScreenText, FillsEveryTerminalExactlyAndInAsciiWhereItMust) {
    for (const auto& [columns, rows] : {std::pair(80, 24), {100, 30}, {160, 50}, {300, 100}, {79, 24}, {20, 5}, {1, 1}})
        for (const int tracks : {0, 4, 16, 200}) {
            const auto drawn = Draw(Playing(tracks), Keys(), columns, rows, false);
            EXPECT_EQ(drawn.size(), static_cast<std::size_t>(rows));
            for (const std::string& row : drawn) {
                EXPECT_EQ(row.size(), static_cast<std::size_t>(columns)) << row;
                EXPECT_EQ(row.find_first_of("\n\t\x1B"), std::string::npos);
                EXPECT_FALSE(std::any_of(row.begin(), row.end(), [](char c) { return (c & 0x80) != 0; })) << row;
            }
        }
    // Of two columns each; the last one does not fit any more.
    EXPECT_THAT(Joined(Draw(Playing(), Keys(), 18, 5)), HasSubstr("NEXT 日本の歌     \n"));
}

TEST(ScreenText, TellsHowTheMusicStartsAgain) {
    ScreenModel model = Playing();
    model.isCountIn = true;
    EXPECT_THAT(Joined(Draw(model, Keys(), 80, 24)), HasSubstr("COUNT-IN"));
    struct Row {
        const char *state, *then, *wanted;
    };
    for (const Row& row : {Row{"waiting", "wait", "STANDS READY: PRESS SPACE"},
                           {"paused", "go", "PAUSED: PRESS SPACE"},
                           {"stopped", "wait", "WAITS FOR SPACE"},
                           {"stopped", "stop", "STOPS: PRESS N, THEN SPACE"},
                           {"fault", "stop", "FAULT: PRESS N OR P, OR :select song"}}) {
        model.state = row.state;
        model.setList[1].then = row.then;
        EXPECT_THAT(Joined(Draw(model, Keys(), 80, 24)), HasSubstr(row.wanted));
    }
    model.nextPlace = 0;
    EXPECT_THAT(Joined(Draw(model, Keys(), 80, 24)), HasSubstr("this is the last song"));
}

TEST(ScreenText, TheTimeCodeLampSaysWhatIsSent) {
    ScreenModel model = Playing();
    EXPECT_THAT(Draw(model, Keys(), 80, 24)[0], HasSubstr(" TC off  loading 2/3  ✗ Synth STALLED 20:15:33"));
    model.Take(R"({"event":"state","state":{"timeCode":{"state":"lost","rate":"25 fps"},"device":{"name":"Synth"}}})");
    EXPECT_THAT(Draw(model, Keys(), 80, 24)[0], HasSubstr(" ✗ TC LOST "));
    EXPECT_THAT(Draw(model, Keys(), 80, 24, false)[0], HasSubstr(" ! TC LOST "));
    model.Take(R"({"event":"state","state":{"timeCode":{"state":"on","rate":"25 fps"}}})");
    model.Take(R"({"event":"position","position":{"timeCode":"01:02:03:04"}})");
    EXPECT_THAT(Draw(model, Keys(), 80, 24)[0], HasSubstr(" ● TC 01:02:03:04  "));
}

TEST(ScreenText, TheLampsOfTheInputsSayWhatIsHeard) {
    const auto drawn = [](const std::string& input, const std::string& control) {
        ScreenModel model = Playing();
        model.Take(R"({"state":{"commandInput":{"state":")" + input + R"("},"showControl":{"state":")" + control +
                   R"(","refused":3,"newestRefusal":"Invalid Msc command"}}})");
        return Joined(Draw(model, Keys(), 80, 24));
    };
    EXPECT_THAT(drawn("none", "none"), testing::Not(testing::AnyOf(HasSubstr("PEDALS"), HasSubstr("SC "))));
    EXPECT_THAT(drawn("missing", "on"), testing::AllOf(HasSubstr("NO PEDALS"), HasSubstr("● SC"),
                                                       HasSubstr("3 refused, the newest: Invalid Msc command")));
    EXPECT_THAT(drawn("on", "off"), HasSubstr("SC OFF"));
    EXPECT_THAT(drawn("on", "missing"), HasSubstr("SC MISSING"));
}

TEST(ScreenModel, LinesOfAnotherKindChangeNothingAndTheNewestIsShown) {
    ScreenModel model = Playing();
    for (const char* line : {"", "{", "[]", "7", "null", "\xFF", R"({"event":"state","state":7})",
                             R"({"event":"position","position":{"bar":"x","active":{"a":1},"seconds":null}})"})
        model.Take(line);
    EXPECT_EQ(model.bar, 23);
    EXPECT_EQ(model.seconds, 30.4);
    model.Take(R"({"done":false,"message":"play is not possible while playing"})");
    EXPECT_THAT(Joined(Draw(model, Keys(), 80, 24)), HasSubstr(" play is not possible while playing"));
    // Which a newer refusal of show control is not hidden by.
    model.Take(R"({"state":{"showControl":{"refused":1,"newestRefusal":"Invalid Msc command"}}})");
    EXPECT_THAT(Joined(Draw(model, Keys(), 80, 24)), HasSubstr("1 refused, the newest: Invalid Msc command"));
}

// ---- keys

std::string Press(Keys& keys, int key, const ScreenModel& model, Keys::Time now = kNow) {
    const Keys::Action action = keys.Press(key, now, model);
    return action.command + (action.leaves ? "<leaves>" : "") + (action.quits ? "<quits>" : "");
}

TEST(OperatorKeys, InShowModeNoSingleKeyTouchesPlayingMusic) {
    const ScreenModel model = Playing();
    int guarded = 0;
    for (int key = 1; key <= Keys::kOther; key = key == 127 ? static_cast<int>(Keys::kUp) : key + 1) {
        Keys keys;
        const std::string first = Press(keys, key, model);
        for (const char* steers : {"play", "pause", "stop", "continue", "next song", "previous song", "next me",
                                   "next ma", "previous me", "previous ma", "locate", "select", "load", "quit"})
            EXPECT_FALSE(first.starts_with(steers)) << key;
        const std::string second = Press(keys, key, model, kNow + 1s);
        guarded += first.empty() && !second.empty();
        EXPECT_EQ(keys.GetPrompt(kNow + 1s).find("again"), std::string::npos);
    }
    EXPECT_EQ(guarded, 8);
}

TEST(OperatorKeys, TwiceWithinASecondCountsAndWhatIsHeldOnDoesNot) {
    const ScreenModel model = Playing();
    Keys keys;
    EXPECT_EQ(Press(keys, 's', model), "");
    EXPECT_EQ(keys.GetPrompt(kNow), "Press s again to stop");
    EXPECT_EQ(Press(keys, 's', model, kNow + 1001ms), "");
    EXPECT_EQ(Press(keys, 'n', model, kNow + 1100ms), "") << "another key begins anew";
    EXPECT_EQ(Press(keys, 's', model, kNow + 1200ms), "");
    EXPECT_EQ(Press(keys, ' ', model, kNow + 1300ms), "");
    EXPECT_EQ(Press(keys, ' ', model, kNow + 1400ms), "pause");
    ScreenModel paused = model;
    paused.state = "paused";
    EXPECT_EQ(Press(keys, ' ', paused, kNow + 1900ms), "") << "held";
    EXPECT_EQ(Press(keys, ' ', paused, kNow + 2600ms), "play");
}

TEST(OperatorKeys, AKeyHeldDownActsOnce) {
    struct Row {
        int key;
        const char *state, *command;
        bool showMode;
    };
    for (const Row& row : {Row{' ', "stopped", "play", true},
                           {' ', "waiting", "play", true},
                           {'s', "stopped", "stop", true},
                           {'n', "stopped", "next song", true},
                           {'p', "stopped", "previous song", true},
                           {' ', "stopped", "play", false},
                           {' ', "playing", "pause", false},
                           {'s', "playing", "stop", false},
                           {'n', "playing", "next song", false},
                           {'p', "playing", "previous song", false}}) {
        SCOPED_TRACE(std::string(row.command) + " while " + row.state);
        ScreenModel model = Playing();
        model.state = row.state;
        Keys keys;
        if (!row.showMode)
            Press(keys, Keys::kTab, model);
        EXPECT_EQ(Press(keys, row.key, model), row.command);
        // What it has led to, while the keyboard repeats it: late at first, then fast.
        model.state = row.command == std::string("play") ? "playing" : "paused";
        auto now = kNow + 660ms;
        for (; now < kNow + 3s; now += 33ms)
            EXPECT_EQ(Press(keys, row.key, model, now), "");
        EXPECT_EQ(keys.GetPrompt(now), "");
        // Let go and pressed again, it acts, or asks to be pressed twice.
        const std::string again = Press(keys, row.key, model, now + 700ms);
        EXPECT_EQ(again.empty(), row.showMode && row.key == ' ');
    }
}

TEST(OperatorKeys, AnotherKeyInBetweenMeansThatTheFirstWasLetGo) {
    ScreenModel model = Playing();
    Keys keys;
    Press(keys, Keys::kTab, model);
    EXPECT_EQ(Press(keys, ' ', model), "pause");
    model.state = "paused";
    EXPECT_EQ(Press(keys, 's', model, kNow + 100ms), "stop");
    model.state = "stopped";
    EXPECT_EQ(Press(keys, ' ', model, kNow + 200ms), "play");
}

TEST(OperatorKeys, ByBarsAndMarkersAHeldKeyGoesOn) {
    ScreenModel model = Playing();
    model.state = "stopped";
    Keys keys;
    for (const int key : {int{Keys::kLeft}, int{Keys::kRight}, int{Keys::kPageUp}, int{Keys::kPageDown}}) {
        const std::string first = Press(keys, key, model);
        EXPECT_NE(first, "");
        EXPECT_EQ(Press(keys, key, model, kNow + 33ms), first);
    }
}

TEST(OperatorKeys, RehearsalModeIsFreeAndPanicIsOneKeyAnywhere) {
    const ScreenModel model = Playing();
    Keys keys;
    Press(keys, Keys::kTab, model);
    EXPECT_THAT(Draw(model, keys, 80, 24)[0], HasSubstr("REHEARSAL"));
    EXPECT_EQ(Press(keys, 's', model), "stop");
    EXPECT_EQ(Press(keys, Keys::kRight, model), "next measure");
    for (const int before : {0, int{'q'}, int{'?'}}) {
        Keys fresh;
        Press(fresh, before, model);
        EXPECT_EQ(Press(fresh, 'x', model), "panic");
    }
    Press(keys, ':', model);
    EXPECT_EQ(Press(keys, Keys::kPanic, model), "panic");
}

TEST(OperatorKeys, QuittingAsksWhileTheMusicPlays) {
    const ScreenModel model = Playing();
    for (const int key : {int{'q'}, int{Keys::kInterrupt}})
        for (const auto& [answer, outcome] : {std::pair('n', ""), {'l', "<leaves>"}, {'y', "quit now<quits>"}}) {
            Keys keys;
            EXPECT_EQ(Press(keys, key, model), "");
            EXPECT_EQ(Press(keys, answer, model), outcome);
            EXPECT_EQ(keys.GetPrompt(kNow), "");
        }
}

TEST(OperatorKeys, PedalsAreLearnedInRehearsalAlone) {
    ScreenModel model = Playing();
    model.Take(R"({"state":{"commandInput":{"name":"Pedals","state":"on","onlyPresses":true,"learning":"","commands":[)"
               R"({"name":"Play","binding":"","leastMilliseconds":0},)"
               R"({"name":"Stop","binding":"note 60, channel 1","leastMilliseconds":300}]}}})");
    Keys keys;
    EXPECT_EQ(Press(keys, 'L', model), "");
    EXPECT_FALSE(keys.ShowsPedals());
    EXPECT_THAT(keys.GetPrompt(kNow), HasSubstr("rehearsal mode: Tab"));
    Press(keys, Keys::kTab, model);
    Press(keys, 'L', model);
    Press(keys, Keys::kDown, model);
    Press(keys, Keys::kDown, model);
    const std::string all = Joined(Draw(model, keys, 80, 24));
    for (const char* wanted : {"Input: Pedals", "Play               -", "note 60, channel 1, not again within 300 ms"})
        EXPECT_THAT(all, HasSubstr(wanted));
    EXPECT_EQ(Press(keys, Keys::kEnter, model), "learn Stop");
    EXPECT_EQ(Press(keys, Keys::kBackspace, model), "unlearn Stop");
    model.learning = "Stop";
    EXPECT_THAT(Joined(Draw(model, keys, 80, 24)), HasSubstr("Press the pedal for Stop"));
    EXPECT_EQ(Press(keys, Keys::kEscape, model), "give up learning");
    model.learning.clear();
    model.Take(R"({"done":true,"message":"press it"})");
    model.Take(R"({"state":{"messages":[{"number":900,"text":"press it"}]}})");
    EXPECT_THAT(Joined(Draw(model, keys, 80, 24)), HasSubstr("press it"));
    model.Take(R"({"state":{"messages":[{"number":900,"text":"press it"},{"number":901,"text":"Stop: note 61"}]}})");
    EXPECT_THAT(Joined(Draw(model, keys, 80, 24)), AllOf(HasSubstr("Stop: note 61"), Not(HasSubstr("press it"))));
    model.learning = "Stop";
    EXPECT_TRUE(keys.ShowsPedals());
    EXPECT_EQ(Press(keys, 'x', model), "panic");
    model.learning.clear();
    Press(keys, Keys::kEscape, model);
    EXPECT_FALSE(keys.ShowsPedals());
    model.showControlState = "missing";
    for (const bool isArmed : {true, false}) {
        model.showControlIsArmed = isArmed;
        EXPECT_EQ(Press(keys, 'c', model), isArmed ? "show control off" : "show control on");
    }
}

TEST(OperatorKeys, TracksAndTypedCommands) {
    const ScreenModel model = Playing();
    Keys keys;
    Press(keys, Keys::kUp, model);
    EXPECT_EQ(Press(keys, 'm', model), "mute 1");
    Press(keys, Keys::kDown, model);
    EXPECT_EQ(Press(keys, 'm', model), "unmute 2");
    for (int i = 0; i < 9; ++i)
        Press(keys, Keys::kDown, model);
    EXPECT_EQ(Press(keys, '>', model), "trim up 4");
    EXPECT_EQ(Press(keys, 'h', model), "hold off");
    Press(keys, 'g', model);
    for (const int key : {int{'1'}, int{'x'}, int{Keys::kBackspace}, int{'2'}})
        EXPECT_EQ(Press(keys, key, model), "");
    EXPECT_EQ(keys.GetPrompt(kNow), "Go to bar[:beat]  12_");
    EXPECT_EQ(Press(keys, Keys::kEnter, model), "locate 12");
    Press(keys, ':', model);
    Press(keys, 0xE9, model);
    EXPECT_EQ(keys.GetPrompt(kNow), ":\u00E9_");
    EXPECT_EQ(Press(keys, Keys::kEscape, model), "");
    EXPECT_EQ(keys.GetPrompt(kNow), "");
    EXPECT_EQ(Press(keys, 'm', ScreenModel()), "") << "no track";
}

}  // namespace
}  // namespace player
