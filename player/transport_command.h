#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "player/bar_beat.h"

namespace player {

/// What the transport is doing.
enum class TransportState {
    kEmpty,    // no song
    kStopped,  // a song stands ready
    kWaiting,  // the next song of the set list stands ready and starts on one key
    kPlaying,
    kPaused,  // by the operator, or at a pause of the song with its notes ringing
    kEnded,   // the last song is over
    kFault    // playing broke down; see the messages
};
std::string_view NameOf(TransportState state);

enum class CommandKind {
    kLoadShow,
    kSelect,
    kPlay,
    kStop,
    kPause,
    kContinue,
    kNextSong,
    kPreviousSong,
    kNextMarker,
    kPreviousMarker,
    kNextMeasure,
    kPreviousMeasure,
    kNextPatch,
    kPreviousPatch,
    kLocate,
    kTempoUp,
    kTempoDown,
    kTempoReset,
    kTempo,
    kTransposeUp,
    kTransposeDown,
    kTransposeReset,
    kTranspose,
    kHold,
    kMuteGroup,
    kUnmuteGroup,
    kUnmuteAll,
    kMute,
    kUnmute,
    kTrimUp,
    kTrimDown,
    kTrim,
    kProgram,
    kFollowPrograms,
    kGuiDelayUp,
    kGuiDelayDown,
    kClick,
    kTimeCode,
    kTimeCodeRate,
    kTimeCodeOutput,
    kGo,
    kShowControl,
    kLearn,
    kUnlearn,
    kGiveUpLearning,
    kCommandInput,
    kOnlyPresses,
    kLeastInterval,
    kResend,
    kPanic,
    kSave,
    kSkip,
    kMove,
    kInsert,
    kConduct
};

/// One argument of a command.
enum class ArgumentKind {
    kPath,          // the rest of the line
    kDevice,        // the rest of the line: a device by name or index
    kCue,           // a song's number, with ".N" its Nth marker; may be left out
    kLearnable,     // the rest of the line: a command that a pedal can drive
    kMilliseconds,  // 0 to 60000
    kSong,          // a song's number in the show, or its key
    kBarBeat,       // BAR[:BEAT]
    kFactor,        // 0.5 to 2
    kInterval,      // semitones, -12 to 12
    kGroup,         // 1 to 255
    kChannel,       // 1 to 16
    kTrim,          // percent, 0 to 127
    kProgram,       // 1 to 128
    kPlace,         // in the set list, from 1
    kSwitch,        // on or off
    kFrameRate      // 24, 25, 29.97df or 30
};

/// One thing that an operator, a script or a pedal can ask for.
struct CommandRow {
    CommandKind kind;
    std::string_view name;
    std::vector<ArgumentKind> arguments;
    std::vector<TransportState> allowedIn;
    std::string_view description;

    /// "trim C PERCENT"
    std::string Usage() const;
};

/// The one table of commands: options, keys, scripts, sockets and pedals all go
/// through it.
std::span<const CommandRow> CommandTable();
const CommandRow& RowOf(CommandKind kind);

/// A command with its arguments understood and in range.
///
/// Units: as in ArgumentKind.
struct TransportCommand {
    CommandKind kind = CommandKind::kStop;
    int number = 0;  // channel, group, bar, semitones, or place in the set list
    int value = 0;   // trim, program, a second place; 1 for on
    int beat = 1;
    double factor = 1;
    std::string text;  // a path, a song, a device, a cue, a command or a frame rate
};

/// Reads "locate 12:1". std::invalid_argument with one line that says what is
/// wrong and what is allowed.
TransportCommand ParseCommand(std::string_view text);

}  // namespace player
