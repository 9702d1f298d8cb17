#include "player/time_code_command.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "player/input_commands.h"
#include "player/time_code_printer.h"
#include "player/time_code_recording.h"

namespace player {

namespace {

constexpr int kDone = 0;
constexpr int kNothingFound = 1;
constexpr int kRefused = 2;

}  // namespace

int FollowTimeCode(const std::string& source) {
    std::error_code error;
    if (!std::filesystem::exists(source, error))
        return FollowTimeCodeInput(source);
    try {
        TimeCodePrinter printer;
        for (const TimeCodeMessage& message : ReadTimeCodeRecording(source))
            printer.Take(message.bytes.data(), message.bytes.size(), message.seconds);
        return printer.PrintSummary() ? kDone : kNothingFound;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "vemo_player: %s\n", failure.what());
        return kRefused;
    }
}

}  // namespace player
