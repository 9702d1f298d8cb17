#include "player/script.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/midi/message_of.h"

namespace player {
namespace {

TEST(Script, ReadsTheCommandsOfARehearsal) {
    const Script script = Script::Parse(
        "# the second verse again\n"
        "\n"
        "at 12:1 transpose -2\r\n"
        "  at 13 locate 4:3\n"
        "at 13:2 tempo 0.75\n"
        "at 14:1 mute 10\n"
        "at 15:1 stop",
        "rehearsal");
    ASSERT_EQ(script.lines.size(), 5u);
    EXPECT_EQ(script.lines[0].at.bar, 12);
    EXPECT_EQ(script.lines[0].command.kind, CommandKind::kTranspose);
    EXPECT_EQ(script.lines[0].command.number, -2);
    EXPECT_EQ(script.lines[0].text, "transpose -2");
    EXPECT_EQ(script.lines[1].at.beat, 1);
    EXPECT_EQ(script.lines[1].command.number, 4);
    EXPECT_EQ(script.lines[1].command.beat, 3);
    EXPECT_EQ(script.lines[2].command.factor, 0.75);
    EXPECT_EQ(script.lines[3].command.number, 10);
    EXPECT_EQ(script.lines[4].command.kind, CommandKind::kStop);
}

TEST(Script, RefusesALineThatIsNoneAndNamesIt) {
    struct Row {
        std::string line, reason;
    };
    const Row rows[] = {
        {"12:1 stop", "a line is: at BAR:BEAT COMMAND"},
        {"at", "a line is: at BAR:BEAT COMMAND"},
        {"at 0:1 stop", "bar '0' is no whole number from 1 to 999999"},
        {"at 1:0 stop", "beat '0' is no whole number from 1 to 999"},
        {"at 1: stop", "beat '' is no whole number from 1 to 999"},
        {"at 1x stop", "bar '1x' is no whole number from 1 to 999999"},
        {"at 1:1 tempo 2.01", "tempo scale '2.01' is no factor from 0.5 to 2"},
        {"at 1:1 tempo nan", "tempo scale 'nan' is no factor from 0.5 to 2"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(
            MessageOf<std::invalid_argument>([&] { Script::Parse("at 1:1 stop\n" + row.line + "\n", "rehearsal"); }),
            "rehearsal: line 2: " + row.reason)
            << row.line;
    for (const char* const line : {"at 1:1", "at 1:1 dance", "at 1:1 transpose 13", "at 1:1 mute 17", "at 1:1 mute",
                                   "at 1:1 stop now", "at 1:1 locate", "at 99999999999:1 stop"})
        EXPECT_THROW(Script::Parse(line, "rehearsal"), std::invalid_argument) << line;
}

}  // namespace
}  // namespace player
