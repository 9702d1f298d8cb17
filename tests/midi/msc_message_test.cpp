#include "midi/msc_message.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

/// The message in one line, or why it is refused.
std::string Parsed(const Bytes& bytes) {
    try {
        const MscMessage message(bytes.data(), bytes.size());
        const MscCueNumber cue = message.EventId();
        return std::to_string(message.DeviceId()) + " " + std::to_string(static_cast<int>(message.Format())) + " " +
               std::to_string(static_cast<int>(message.Command())) + " [" + cue.number + "|" + cue.list + "|" +
               cue.path + "]";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(MscMessage, GivesTheCueOfAGoAndRefusesEverythingElse) {
    const char* const tooShort = "Insufficient bytes to be a valid MSC message";
    const char* const overflow = "MSC Message Cue Overflow";
    const struct {
        Bytes bytes;
        std::string expected;
    } rows[] = {
        {{0x7F, 0x02, 0x11, 0x01, 0x31, 0xF7}, "127 17 1 [1||]"},
        {{0x01, 0x02, 0x17, 0x01, 0x31, 0x2E, 0x35, 0x00, 0x32, 0x00, 0x33, 0xF7}, "1 23 1 [1.5|2|3]"},
        {{0x01, 0x02, 0x11, 0x01, 0xF7}, "1 17 1 [||]"},
        {{0xFF, 0x02, 0x11, 0x01, 0x00, 0x32, 0xF7, 0x00, 0x33}, "255 17 1 [|2|]"},
        {{0x01, 0x02, 0x11, 0x01, 0x31, 0x00, 0xF7}, "1 17 1 [1||]"},
        {{0x01, 0x02, 0x11, 0x01, 0x31, 0x00, 0x00, 0x33, 0x00, 0x34}, "1 17 1 [1||3]"},
        {{0x01, 0x02, 0x11, 0x01, 0x31}, overflow},
        {{0x01, 0x02, 0x11, 0x01}, overflow},
        {{0x01, 0x02, 0x11, 0x01, 0x31, 0x00}, overflow},
        {{0x01, 0x02, 0x11, 0x01, 0x31, 0x00, 0x32, 0x00}, overflow},
        {{}, tooShort},
        {{0x01, 0x02, 0x11}, tooShort},
        {{0x01, 0x01, 0x10, 0x02, 0xF7}, "The SysEx code is not for MSC"},
        {{0x01, 0x02, 0x10, 0x02, 0xF7}, "Invalid MSC command format type"},
        {{0x01, 0x02, 0x7F, 0x01, 0xF7}, "Invalid MSC command format type"},
        {{0x01, 0x02, 0x17, 0x02, 0xF7}, "Invalid Msc command"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Parsed(row.bytes), row.expected) << testing::PrintToString(row.bytes);
}

}  // namespace
