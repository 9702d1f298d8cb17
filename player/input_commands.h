#pragma once

#include <filesystem>
#include <string>

namespace player {

/// What the operator does with MIDI inputs and show control outside a running show. Each
/// returns the exit status: 0; 1 for what did not come about; 2 for a request that cannot
/// be met. Messages go to standard error.
///
/// Threads: the main thread.

/// Prints what arrives, decoded, with its time, until it is interrupted. input: name or
/// index; empty: lists the inputs.
int MonitorInput(const std::string& input);

/// Follows the time code that arrives, as FollowTimeCode() does, until it is interrupted.
int FollowTimeCodeInput(const std::string& input);

struct LearnRequest {
    std::filesystem::path show;
    std::string command;         // that is to be learned; empty: none
    std::string forgotten;       // a command whose pedal is to be forgotten; empty: none
    std::string input;           // name or index; empty: the one that was chosen before
    std::filesystem::path file;  // what was learned; empty: lies beside the show
};
/// Learns or forgets one command of a show, and lists them all.
int LearnCommand(const LearnRequest& request);

struct ShowControlGo {
    std::string output;  // name or index
    std::string cue;     // empty: GO alone
    std::string list;
    std::string path;
    int deviceId = 0x7F;        // 0..127
    bool isForEffects = false;  // the format for audio effects devices instead of music
};
/// Writes one GO of MIDI Show Control to an output.
int SendShowControl(const ShowControlGo& go);

}  // namespace player
