#pragma once

#include <string>

namespace player {

/// What vemo_player returns to the shell, whichever of its commands was run. An int, for
/// main() and the operators' scripts.
enum ExitStatus : int {
    kDone = 0,           ///< What was asked for was done.
    kFailed = 1,         ///< It began, or could have, and did not come about.
    kRefused = 2,        ///< Nothing began: the command line or what it names cannot be used.
    kInterrupted = 130,  ///< Ended by SIGINT or SIGTERM; 128 + SIGINT, as shells have it.
};

/// A line of the program's own on standard error, for what does not end it.
///
/// Threads: any that may wait for as long as standard error is stuck: none of the engine's.
void Complain(const std::string& message);
/// Also returns the status, for a function that ends with it.
int Complain(const std::string& message, int status);

}  // namespace player
