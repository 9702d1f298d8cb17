#include "player/transport_command.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <stdexcept>

namespace player {

namespace {

using State = TransportState;

int ParseInteger(std::string_view text, int least, int most, std::string_view what) {
    int value = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || value < least || value > most)
        throw std::invalid_argument(std::string(what) + " '" + std::string(text) + "' is no whole number from " +
                                    std::to_string(least) + " to " + std::to_string(most));
    return value;
}

double ParseFactor(std::string_view text) {
    double value = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || !(value >= 0.5 && value <= 2.0))
        throw std::invalid_argument("tempo scale '" + std::string(text) + "' is no factor from 0.5 to 2");
    return value;
}

}  // namespace

std::string_view NameOf(TransportState state) {
    switch (state) {
        case State::kEmpty: return "empty";
        case State::kStopped: return "stopped";
        case State::kPlaying: return "playing";
        case State::kEnded: return "ended";
        case State::kFault: return "fault";
    }
    return "unknown";
}

std::span<const CommandRow> CommandTable() {
    static const std::vector<State> always = {State::kEmpty, State::kStopped, State::kPlaying, State::kEnded,
                                              State::kFault};
    static const std::vector<State> withSong = {State::kStopped, State::kPlaying, State::kEnded};
    static const std::vector<CommandRow> rows = {
        {CommandKind::kLoad,
         "load",
         "SONG",
         {State::kEmpty, State::kStopped, State::kPlaying, State::kEnded},
         "stand at the start of a song of the list"},
        {CommandKind::kPlay, "play", "", {State::kStopped, State::kEnded}, "play from here on"},
        {CommandKind::kStop, "stop", "", {State::kPlaying, State::kStopped, State::kEnded}, "stop and end every note"},
        {CommandKind::kLocate, "locate", "BAR[:BEAT]", withSong, "go on at another bar"},
        {CommandKind::kTempo, "tempo", "X", always, "scale the tempo, 0.5 to 2"},
        {CommandKind::kTranspose, "transpose", "N", always, "transpose by semitones, -12 to 12"},
        {CommandKind::kMute, "mute", "C", always, "mute the track of a MIDI channel"},
        {CommandKind::kUnmute, "unmute", "C", always, "unmute it"},
        {CommandKind::kPanic, "panic", "", always, "silence the device at once"},
    };
    return rows;
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
    std::istringstream words{std::string(text)};
    std::string name, argument, surplus;
    words >> name >> argument >> surplus;
    const auto rows = CommandTable();
    const auto row =
        std::find_if(rows.begin(), rows.end(), [&](const CommandRow& known) { return known.name == name; });
    if (row == rows.end()) {
        std::string names;
        for (const CommandRow& known : rows)
            names += (names.empty() ? "" : ", ") + std::string(known.name);
        throw std::invalid_argument("no command '" + name + "'; there are " + names);
    }
    if (argument.empty() != row->arguments.empty() || !surplus.empty())
        throw std::invalid_argument("the command is: " + name +
                                    (row->arguments.empty() ? "" : " " + std::string(row->arguments)));
    TransportCommand command;
    command.kind = row->kind;
    switch (row->kind) {
        case CommandKind::kLoad: command.number = ParseInteger(argument, 1, 999'999, "song"); break;
        case CommandKind::kLocate: {
            const BarBeat place = ParseBarBeat(argument);
            command.number = place.bar;
            command.beat = place.beat;
            break;
        }
        case CommandKind::kTempo: command.factor = ParseFactor(argument); break;
        case CommandKind::kTranspose: command.number = ParseInteger(argument, -12, 12, "transposition"); break;
        case CommandKind::kMute:
        case CommandKind::kUnmute: command.number = ParseInteger(argument, 1, 16, "channel"); break;
        case CommandKind::kPlay:
        case CommandKind::kStop:
        case CommandKind::kPanic: break;
    }
    return command;
}

}  // namespace player
