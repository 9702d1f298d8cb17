#include "zell/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>

using zell::format;

namespace {

enum Small : unsigned char { kSmall = 200 };
enum class Negative { kOne = -1 };

TEST(Format, PrintsEachArgumentWithItsValueWhateverThePattern) {
    const std::string name = "midiStreamOut";
    const std::string withZero("a\0b", 3);
    const char* nothing = nullptr;
    const std::tuple<std::string, std::string> cases[] = {
        {format("%s line %d: %s caused error %d, %s.", "win_synth.cpp", 12, name, 65u, std::string_view("text")),
         "win_synth.cpp line 12: midiStreamOut caused error 65, text."},
        {format("%d %i %u", 4294967295u, std::numeric_limits<std::int64_t>::min(), -1),
         "4294967295 -9223372036854775808 -1"},
        {format("%ld %llu %hhd %zu", 1, 18446744073709551615ull, 300, std::size_t{7}), "1 18446744073709551615 300 7"},
        {format("%x %X %x %#x", 255, std::uint8_t{0x9F}, -1, std::int16_t{-1}), "ff 9F ffffffff 0xffff"},
        {format("%d %d %d", kSmall, Negative::kOne, true), "200 -1 1"},
        {format("%d", 'A'), "65"},
        {format("%f %.2f %g %e", 1.5, 2.0 / 3, 0.25, 1.0f), "1.500000 0.67 0.25 1.000000e+00"},
        {format("100%%"), "100%"},
        {format(""), ""},
        {format("[%5d][%-5d][%05d][%+d][% d]", 42, 42, 42, 42, 42), "[   42][42   ][00042][+42][ 42]"},
        {format("[%5s][%-5s][%.2s][%1s]", "abc", "abc", "abc", "abc"), "[  abc][abc  ][ab][abc]"},
        {format("[%6.2f][%.d][%.3d]", 3.14159, 7, 7), "[  3.14][7][007]"},
        {format("[%4s][%-4s]", 12, 3.5), "[  12][3.5 ]"},
        // Patterns that do not fit.
        {format("%d %s", 1), "1 %!"},
        {format("%d", "text"), "text"},
        {format("%s %s", 5u, 0.5), "5 0.5"},
        {format("%d", 2.5), "2.5"},
        {format("%f", 3), "3"},
        {format("%s", nothing), "(null)"},
        {format("no conversion", 1, 2), "no conversion"},
        {format("%y %5q %", 1), "%y %5q %"},
        {format("%s!", withZero), withZero + "!"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(text, expected);
    EXPECT_LE(format("%99999999999999999999d", 1).size(), 999u);
    EXPECT_LE(format("%.99999999999999999999s", "x").size(), 1u);
}

}  // namespace
