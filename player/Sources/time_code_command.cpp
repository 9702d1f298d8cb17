#include "player/time_code_command.h"

#include <exception>
#include <filesystem>
#include <string>

#include "player/exit_status.h"
#include "player/input_commands.h"
#include "player/time_code_printer.h"
#include "player/time_code_recording.h"

namespace player {

int FollowTimeCode(const std::string& source) {
    std::error_code error;
    if (!std::filesystem::exists(source, error))
        return FollowTimeCodeInput(source);
    try {
        TimeCodePrinter printer;
        for (const TimeCodeMessage& message : ReadTimeCodeRecording(source))
            printer.Take(message.bytes.data(), message.bytes.size(), message.seconds);
        return printer.PrintSummary() ? kDone : kFailed;
    } catch (const std::exception& failure) {
        return Complain(failure.what(), kRefused);
    }
}

}  // namespace player
