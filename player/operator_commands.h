#pragma once

#include <string>
#include <vector>

namespace player {

/// What the program does from the operator's side: the player as a process of its own,
/// and the screens and commands that reach it. Each says on standard error what is
/// wrong and returns the status of the program. Where a system has no local sockets,
/// that is what they say.
///
/// Threads: the main thread, before any other was started.

/// Whether this system has a control socket.
bool CanServe();
/// ${XDG_RUNTIME_DIR}/vemo_player.sock, or in a folder of this user's below /tmp.
/// std::runtime_error with one line where there is no folder that only this user
/// may enter.
std::string DefaultSocketPath();
/// Whether a screen can be shown: standard input and output are a terminal.
bool HasTerminal();
/// For a player without a terminal of its own: hang-ups are ignored.
void OutliveTerminal();

/// Starts this program again with these arguments, which make it serve at the socket, in
/// a session of its own, so that no terminal can take it along; waits until it
/// listens, and shows the screen until the operator leaves it or ends the player.
/// What the player says goes to a file beside the socket.
int PlayOnScreen(const std::vector<std::string>& arguments, const std::string& socketPath);
/// The screen of a player that runs. An empty path means the default.
int Attach(const std::string& socketPath);
/// One command; the answer goes to standard output. 0 when it is done, else 1.
int SendOneCommand(const std::string& socketPath, const std::string& command);

}  // namespace player
