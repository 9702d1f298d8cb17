#pragma once

#include <optional>
#include <string>
#include <vector>

namespace player {

/// What the operator asked of `vemo_player play`.
struct PlayOptions {
    std::vector<std::string> files;
    bool offline = false;
    std::string recordTo;
    std::string output;              // name or index; empty: the first
    std::filesystem::path commands;  // what was learned; empty: lies beside the show
    std::string input;               // of pedals and keys: name or index; empty: the one that the show knows
    double tempoScale = 1;
    int transposition = 0;
    std::vector<int> mutedChannels;  // 1..16
    std::optional<int> fromBar;
    std::optional<int> toBar;
    bool json = false;
    std::string script;
    bool resume = false;        // a show file: come back, stopped, to where it was
    bool allowOutside = false;  // its songs may lie outside its folder
    std::string mtc;            // a frame rate, as TimeCodeControl::ParseFrameRate() takes it; empty: not said
    std::string mtcOutput;      // name or index; empty: not said
    std::string mtcStart;       // a label; empty: the day's beginning
    std::string mtcRecordTo;
    /// The path of a control socket: an operator steers, and nothing plays by itself.
    std::string serveAt;
};

/// Plays the files one after another and returns the exit status: 0; 1 for a run
/// that failed; 2 for what is wrong with the request, found before anything plays;
/// 130 when interrupted. Messages go to standard error.
///
/// Threads: the main thread.
int Play(const PlayOptions& options);

}  // namespace player
