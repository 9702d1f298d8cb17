#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "zell/note_name.h"
#include "zell/path.h"

namespace {

TEST(NoteName, SaysTheNoteWithItsOctave) {
    const std::pair<unsigned int, std::string> cases[] = {
        {0, "C-1"}, {11, "B-1"}, {12, "C0"}, {60, "C4"}, {61, "C#4"}, {127, "G9"}, {4294967295u, "D#357913940"}};
    for (const auto& [note, name] : cases)
        EXPECT_EQ(zell::midi::GetNoteName(note), name) << note;
}

TEST(PathJoin, PutsExactlyOneSeparatorBetweenTheParts) {
    const std::tuple<std::string, std::string, std::string> cases[] = {{"show", "song", "show/song"},
                                                                       {"show/", "song", "show/song"},
                                                                       {"show", "/song", "show/song"},
                                                                       {"show//", "//song/", "show/song/"},
                                                                       {"", "song", "song"},
                                                                       {"show", "", "show"},
                                                                       {"", "", ""},
                                                                       {"/", "song", "/song"},
                                                                       {"show", "/", "show/"},
                                                                       {"a\\", "b", "a\\/b"}};
    for (const auto& [left, right, joined] : cases)
        EXPECT_EQ(zell::path::Join(left, right), joined) << left << " + " << right;
}

}  // namespace
