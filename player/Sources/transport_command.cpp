#include "player/transport_command.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

#include "player/display_text.h"
#include "player/time_code_control.h"

namespace player {

namespace {

using State = TransportState;
using Argument = ArgumentKind;

int ParseInteger(std::string_view text, int least, int most, std::string_view what) {
    int value = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || value < least || value > most)
        throw std::invalid_argument(std::string(what) + " '" + DisplayText(std::string(text)) +
                                    "' is no whole number from " + std::to_string(least) + " to " +
                                    std::to_string(most));
    return value;
}

double ParseFactor(std::string_view text) {
    double value = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || !(value >= 0.5 && value <= 2.0))
        throw std::invalid_argument("tempo scale '" + DisplayText(std::string(text)) + "' is no factor from 0.5 to 2");
    return value;
}

std::string_view NameOf(Argument argument) {
    switch (argument) {
        case Argument::kPath: return "FILE";
        case Argument::kDevice: return "DEVICE";
        case Argument::kCue: return "[CUE]";
        case Argument::kLearnable: return "COMMAND";
        case Argument::kMilliseconds: return "MILLISECONDS";
        case Argument::kSong: return "SONG";
        case Argument::kBarBeat: return "BAR[:BEAT]";
        case Argument::kFactor: return "X";
        case Argument::kInterval: return "N";
        case Argument::kGroup: return "G";
        case Argument::kChannel: return "C";
        case Argument::kTrim: return "PERCENT";
        case Argument::kProgram: return "PROGRAM";
        case Argument::kPlace: return "PLACE";
        case Argument::kSwitch: return "on|off";
        case Argument::kFrameRate: return "24|25|29.97df|30";
    }
    return "";
}

// The first number that a command takes is what it acts on, the second what it sets.
void Understand(Argument argument, const std::string& text, bool isFirst, TransportCommand& command) {
    int& number = isFirst ? command.number : command.value;
    switch (argument) {
        case Argument::kPath:
        case Argument::kDevice:
        case Argument::kCue:
        case Argument::kLearnable:
        case Argument::kSong: command.text = text; break;
        case Argument::kMilliseconds: number = ParseInteger(text, 0, 60'000, "time"); break;
        case Argument::kFrameRate:
            TimeCodeControl::ParseFrameRate(text);
            command.text = text;
            break;
        case Argument::kBarBeat: {
            const BarBeat place = ParseBarBeat(text);
            command.number = place.bar;
            command.beat = place.beat;
            break;
        }
        case Argument::kFactor: command.factor = ParseFactor(text); break;
        case Argument::kInterval: number = ParseInteger(text, -12, 12, "transposition"); break;
        case Argument::kGroup: number = ParseInteger(text, 1, 255, "group"); break;
        case Argument::kChannel: number = ParseInteger(text, 1, 16, "channel"); break;
        case Argument::kTrim: number = ParseInteger(text, 0, 127, "trim"); break;
        case Argument::kProgram: number = ParseInteger(text, 1, 128, "program"); break;
        case Argument::kPlace: number = ParseInteger(text, 1, 999'999, "place"); break;
        case Argument::kSwitch:
            if (text != "on" && text != "off")
                throw std::invalid_argument("'" + DisplayText(text) + "' is neither on nor off");
            command.value = text == "on";
            break;
    }
}

}  // namespace

std::string_view NameOf(TransportState state) {
    switch (state) {
        case State::kEmpty: return "empty";
        case State::kStopped: return "stopped";
        case State::kWaiting: return "waiting";
        case State::kPlaying: return "playing";
        case State::kPaused: return "paused";
        case State::kEnded: return "ended";
        case State::kFault: return "fault";
    }
    return "unknown";
}

std::string CommandRow::Usage() const {
    std::string usage(name);
    for (const ArgumentKind argument : arguments)
        usage += " " + std::string(NameOf(argument));
    return usage;
}

std::span<const CommandRow> CommandTable() {
    static const std::vector<State> always = {State::kEmpty,  State::kStopped, State::kWaiting, State::kPlaying,
                                              State::kPaused, State::kEnded,   State::kFault};
    static const std::vector<State> withShow = {State::kEmpty,   State::kStopped, State::kWaiting,
                                                State::kPlaying, State::kPaused,  State::kEnded};
    static const std::vector<State> withSong = {State::kStopped, State::kWaiting, State::kPlaying, State::kPaused,
                                                State::kEnded};
    using Kind = CommandKind;
    static const std::vector<CommandRow> rows = {
        {Kind::kLoadShow, "load show", {Argument::kPath}, always, "stop and open another show"},
        {Kind::kSelect, "select song", {Argument::kSong}, always, "stop and stand at the start of a song"},
        {Kind::kPlay, "play", {}, {State::kStopped, State::kWaiting, State::kPaused, State::kEnded}, "play from here"},
        {Kind::kStop, "stop", {}, withSong, "stop and end every note"},
        {Kind::kPause, "pause", {}, {State::kPlaying}, "stop after this clock, to continue from there"},
        {Kind::kContinue, "continue", {}, {State::kPaused, State::kWaiting, State::kStopped}, "go on from a pause"},
        {Kind::kNextSong, "next song", {}, always, "stop and stand at the next song of the set list"},
        {Kind::kPreviousSong, "previous song", {}, always, "the same for the one before"},
        {Kind::kNextMarker, "next marker", {}, withSong, "go on at the next marker"},
        {Kind::kPreviousMarker, "previous marker", {}, withSong, "go on at the marker before"},
        {Kind::kNextMeasure, "next measure", {}, withSong, "go on at the next bar"},
        {Kind::kPreviousMeasure, "previous measure", {}, withSong, "go on at the bar before"},
        {Kind::kNextPatch, "next patch", {}, withSong, "the song's next set of programs"},
        {Kind::kPreviousPatch, "previous patch", {}, withSong, "the set of programs before"},
        {Kind::kLocate, "locate", {Argument::kBarBeat}, withSong, "go on at another bar"},
        {Kind::kTempoUp, "tempo up", {}, always, "a hundredth faster"},
        {Kind::kTempoDown, "tempo down", {}, always, "a hundredth slower"},
        {Kind::kTempoReset, "tempo reset", {}, always, "the tempo as written"},
        {Kind::kTempo, "tempo", {Argument::kFactor}, always, "scale the tempo, 0.5 to 2"},
        {Kind::kTransposeUp, "transpose up", {}, always, "a semitone higher"},
        {Kind::kTransposeDown, "transpose down", {}, always, "a semitone lower"},
        {Kind::kTransposeReset, "transpose reset", {}, always, "the pitch as written"},
        {Kind::kTranspose, "transpose", {Argument::kInterval}, always, "transpose by semitones, -12 to 12"},
        {Kind::kHold, "hold", {Argument::kSwitch}, always, "keep tempo scale and transposition from song to song"},
        {Kind::kMuteGroup, "mute group", {Argument::kGroup}, always, "mute the tracks of a group"},
        {Kind::kUnmuteGroup, "unmute group", {Argument::kGroup}, always, "unmute them"},
        {Kind::kUnmuteAll, "unmute all", {}, always, "unmute every track"},
        {Kind::kMute, "mute", {Argument::kChannel}, always, "mute the track of a MIDI channel"},
        {Kind::kUnmute, "unmute", {Argument::kChannel}, always, "unmute it"},
        {Kind::kTrimUp, "trim up", {Argument::kChannel}, always, "a track a little louder"},
        {Kind::kTrimDown, "trim down", {Argument::kChannel}, always, "a track a little softer"},
        {Kind::kTrim, "trim", {Argument::kChannel, Argument::kTrim}, always, "a track's volume in percent"},
        {Kind::kProgram, "program", {Argument::kChannel, Argument::kProgram}, withSong, "choose a track's program"},
        {Kind::kFollowPrograms, "follow programs", {}, withSong, "back to the song's own programs"},
        {Kind::kGuiDelayUp, "gui delay up", {}, always, "show the position later"},
        {Kind::kGuiDelayDown, "gui delay down", {}, always, "show the position sooner"},
        {Kind::kClick, "click", {Argument::kSwitch}, withSong, "the song's audible click"},
        {Kind::kTimeCode, "time code", {Argument::kSwitch}, withShow, "send MIDI Time Code"},
        {Kind::kTimeCodeRate, "time code rate", {Argument::kFrameRate}, withShow, "its frame rate"},
        {Kind::kTimeCodeOutput, "time code output", {Argument::kDevice}, withShow, "the output that it leaves on"},
        {Kind::kGo, "go", {Argument::kCue}, withShow, "play a cue of show control, or what is selected"},
        {Kind::kShowControl, "show control", {Argument::kSwitch}, withShow, "obey show control"},
        {Kind::kLearn, "learn", {Argument::kLearnable}, withShow, "have the next pedal or key drive a command"},
        {Kind::kUnlearn, "unlearn", {Argument::kLearnable}, withShow, "forget the pedal of a command"},
        {Kind::kGiveUpLearning, "give up learning", {}, withShow, "wait for no pedal any more"},
        {Kind::kCommandInput, "command input", {Argument::kDevice}, withShow, "the input of pedals and keys"},
        {Kind::kOnlyPresses,
         "only presses",
         {Argument::kSwitch},
         withShow,
         "a controller of that input fires only as it rises to 64"},
        {Kind::kLeastInterval,
         "least interval",
         {Argument::kMilliseconds, Argument::kLearnable},
         withShow,
         "so long a pedal does not fire its command again"},
        {Kind::kResend, "resend", {}, always, "send the device its whole state again"},
        {Kind::kPanic, "panic", {}, always, "silence the device at once"},
        {Kind::kSave, "save", {}, withShow, "write trims and mutes into the show file"},
        {Kind::kSkip, "skip", {}, withShow, "leave out the next song of the set list"},
        {Kind::kMove, "move", {Argument::kPlace, Argument::kPlace}, withShow, "move a song of the set list"},
        {Kind::kInsert, "insert", {Argument::kSong, Argument::kPlace}, withShow, "put a song into the set list"},
        {Kind::kConduct, "conduct beat", {}, always, "not to be had: the clock runs by itself"},
    };
    return rows;
}

const CommandRow& RowOf(CommandKind kind) {
    const auto rows = CommandTable();
    return *std::find_if(rows.begin(), rows.end(), [kind](const CommandRow& row) { return row.kind == kind; });
}

BarBeat ParseBarBeat(std::string_view text) {
    const auto colon = text.find(':');
    BarBeat place;
    place.bar = ParseInteger(text.substr(0, colon), 1, 999'999, "bar");
    if (colon != std::string_view::npos)
        place.beat = ParseInteger(text.substr(colon + 1), 1, 999, "beat");
    return place;
}

TransportCommand ParseCommand(std::string_view text) {
    std::istringstream input{std::string(text)};
    std::vector<std::string> words;
    for (std::string word; input >> word;)
        words.push_back(word);
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + word;
    // The longest name that the line begins with: "tempo up" before "tempo".
    const CommandRow* row = nullptr;
    for (const CommandRow& known : CommandTable())
        if ((line + " ").starts_with(std::string(known.name) + " ") && (!row || known.name.size() > row->name.size()))
            row = &known;
    if (!row) {
        std::string names;
        for (const CommandRow& known : CommandTable())
            names += (names.empty() ? "" : ", ") + std::string(known.name);
        throw std::invalid_argument("no command '" + DisplayText(line) + "'; there are " + names);
    }
    TransportCommand command;
    command.kind = row->kind;
    const auto nameWords = static_cast<std::size_t>(1 + std::count(row->name.begin(), row->name.end(), ' '));
    std::vector<std::string> arguments(words.begin() + static_cast<std::ptrdiff_t>(nameWords), words.end());
    const auto takesLine = [](Argument argument) {
        return argument == Argument::kPath || argument == Argument::kDevice || argument == Argument::kLearnable;
    };
    if (const std::size_t last = row->arguments.size() - 1;
        !row->arguments.empty() && takesLine(row->arguments[last]) && arguments.size() > last) {
        // A file's name may hold blanks.
        std::size_t at = 0;
        for (const std::string& word : std::span(words).first(nameWords + last))
            at = text.find(word, at) + word.size();
        at = text.find(words[nameWords + last], at);
        arguments.resize(last);
        arguments.emplace_back(text.substr(at, text.find_last_not_of(" \t\r\n") + 1 - at));
    }
    const bool mayBeAlone = row->kind == CommandKind::kGo && arguments.empty();
    if (arguments.size() != row->arguments.size() && !mayBeAlone)
        throw std::invalid_argument("the command is: " + row->Usage());
    for (std::size_t i = 0; i < arguments.size(); ++i)
        Understand(row->arguments[i], arguments[i], i == 0, command);
    return command;
}

}  // namespace player
