#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace player {

/// What the transport is doing.
enum class TransportState {
    kEmpty,    // no song
    kStopped,  // a song stands ready
    kPlaying,
    kEnded,  // the last song is over
    kFault   // playing broke down; see the messages
};
std::string_view NameOf(TransportState state);

enum class CommandKind { kLoad, kPlay, kStop, kLocate, kTempo, kTranspose, kMute, kUnmute, kPanic };

/// One thing that an operator, a script or a pedal can ask for.
struct CommandRow {
    CommandKind kind;
    std::string_view name;
    std::string_view arguments;  // for the operator: "BAR[:BEAT]"
    std::vector<TransportState> allowedIn;
    std::string_view description;
};

/// The one table of commands: options, keys, scripts and pedals all go through it.
std::span<const CommandRow> CommandTable();

/// A command with its arguments understood and in range.
///
/// Units: song from 1; bar and beat from 1; channel 1..16; a factor of 0.5 to 2;
///        semitones -12..12.
struct TransportCommand {
    CommandKind kind = CommandKind::kStop;
    int number = 0;  // song, bar, semitones or channel
    int beat = 1;
    double factor = 1;
};

/// Reads "locate 12:1". std::invalid_argument with one line that says what is
/// wrong and what is allowed.
TransportCommand ParseCommand(std::string_view text);

/// "12" or "12:3": bar and beat, from 1. std::invalid_argument as above.
struct BarBeat {
    int bar = 1;
    int beat = 1;
};
BarBeat ParseBarBeat(std::string_view text);

}  // namespace player
