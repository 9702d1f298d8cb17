#include "player/display_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;

TEST(DisplayText, IsOneLineOfUtf8WhateverTheFileHolds) {
    const struct {
        std::string given, shown;
    } cases[] = {
        {"", ""},
        {"  Verse 1 ", "Verse 1"},
        {"two\r\nlines\x1B[2J\x7F!", "two  lines [2J !"},
        {"padded\0\0"s, "padded"},
        {"\0\t "s, ""},
        {"Fl\xC3\xB6te \xE2\x99\xAD \xF0\x9F\x8E\xB5", "Fl\xC3\xB6te \xE2\x99\xAD \xF0\x9F\x8E\xB5"},
        {"\xC2\x9BX", "X"},                   // a control character of two bytes
        {"Fl\xF6te", "Fl\xC3\xB6te"},         // Latin-1
        {"\xA9 1996 \x9B", "\xC2\xA9 1996"},  // Latin-1 with a control character
        {"\xC3", "\xC3\x83"},                 // cut short
        {"\xC0\xAF", "\xC3\x80\xC2\xAF"},     // overlong, as the next
        {"\xE0\xA0", "\xC3\xA0\xC2\xA0"},
        {"\xED\xA0\xA1", "\xC3\xAD\xC2\xA0\xC2\xA1"},              // a surrogate
        {"\xF4\xA1\xA1\xA1", "\xC3\xB4\xC2\xA1\xC2\xA1\xC2\xA1"},  // beyond the last character
        {"\xFF", "\xC3\xBF"},
    };
    for (const auto& [given, shown] : cases)
        EXPECT_EQ(player::DisplayText(given), shown) << ::testing::PrintToString(given);
}

}  // namespace
