#pragma once

#include <string>

namespace player {

/// The operator's screen: a client of the control socket that draws what the server
/// tells and sends what the keys mean. Whatever becomes of the terminal, the player and
/// its music are another process.
///
/// Owner:   the program, in the process that has the terminal. One at a time: the
///          terminal's library knows no more.
/// Threads: the main thread.
class Screen {
public:
    enum class End {
        kLeft,  // by the operator, or the terminal has gone: the player goes on
        kQuit,  // the player was asked to end
        kLost,  // the player has gone
        kNoTerminal
    };

    /// Whether this build has screens.
    static bool IsAvailable();
    /// Runs until one of the ends. A player that drops the connection is sought again.
    static End Run(const std::string& socketPath);
};

}  // namespace player
