#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "vemo_core/keys.h"
#include "vemo_core/voice_event.h"

namespace {

TEST(Keys, NamesAKeySignatureMovedBySemitones) {
    const std::tuple<int, bool, int, std::string> cases[] = {
        {0, false, 0, "C major"},       {0, true, 0, "A minor"},         {-7, false, 0, "C flat major"},
        {7, true, 0, "A sharp minor"},  {7, false, 12, "C sharp major"}, {7, false, -24, "C sharp major"},
        {0, false, 1, "D flat major"},  {0, false, 2, "D major"},        {0, false, -1, "B major"},
        {0, false, 3, "E flat major"},  {0, true, 4, "C sharp minor"},   {0, false, 6, "F sharp major"},
        {-1, false, 1, "G flat major"}, {-1, true, 1, "E flat minor"},   {1, false, -1, "F sharp major"},
        {7, false, 1, "D major"},       {-7, false, -1, "B flat major"}, {-7, true, 127, "E flat minor"},
        {0, false, -127, "F major"},    {0, false, 13, "D flat major"},  {9, false, 0, "E flat major"}};
    for (const auto& [sharps, minor, semitones, name] : cases)
        EXPECT_EQ(Keys::getTransposedName(sharps, minor, semitones), name)
            << sharps << (minor ? " minor " : " major ") << semitones;
}

TEST(VoiceEvent, IsValidForChannelMessagesOnly) {
    const std::tuple<int, int, int, bool> cases[] = {{0x7F, 0, 0, false}, {0x80, 0, 0, true},    {0xEF, 127, 127, true},
                                                     {0xF0, 0, 0, false}, {0x90, 128, 0, false}, {0x90, 0, 128, false}};
    for (const auto& [status, data1, data2, valid] : cases) {
        const vemo_midi::VoiceEvent event(0, static_cast<std::uint8_t>(status), 0, static_cast<std::uint8_t>(data1),
                                          static_cast<std::uint8_t>(data2));
        EXPECT_EQ(event.IsValidVoiceEvent(), valid) << status << " " << data1 << " " << data2;
    }
}

}  // namespace
