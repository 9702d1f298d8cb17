#include "midi/midi_command_tables.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "vemo_core/callback_dispatcher.h"
#include "vemo_core/notify_names.h"

namespace midi_commands {

namespace {

struct Command {
    const char* name;
    std::string_view notification;
};

constexpr std::array<Command, 12> kCommands{{
    {"Conduct Beat", notify::names::midiCommandConductBeat},
    {"Continuous Mode", notify::names::midiCommandContinuousMode},
    {"Play", notify::names::midiCommandPlay},
    {"Pause", notify::names::midiCommandPause},
    {"Stop", notify::names::midiCommandStop},
    {"Next Song", notify::names::midiCommandNextSong},
    {"Previous Song", notify::names::midiCommandPreviousSong},
    {"Next Marker", notify::names::midiCommandNextMarker},
    {"Previous Marker", notify::names::midiCommandPreviousMarker},
    {"Continue", notify::names::midiCommandContinue},
    {"NextPatch", notify::names::midiCommandNextPatch},
    {"PreviousPatch", notify::names::midiCommandPreviousPatch},
}};

std::map<unsigned char, std::function<void()>> Functions() {
    std::map<unsigned char, std::function<void()>> functions;
    for (std::size_t id = 0; id < kCommands.size(); ++id)
        functions[static_cast<unsigned char>(id)] = [notification = kCommands[id].notification] {
            notify::callbackDispatcher.Notify(notification, nullptr);
        };
    return functions;
}

std::map<unsigned char, std::string> Names(std::size_t first, std::size_t last) {
    std::map<unsigned char, std::string> names;
    for (std::size_t id = first; id <= last; ++id)
        names[static_cast<unsigned char>(id)] = kCommands[id].name;
    return names;
}

}  // namespace

const std::map<unsigned char, std::function<void()>> commandIds = Functions();
const std::map<unsigned char, std::string> commandNames = Names(2, 9);
const std::map<unsigned char, std::string> ambrelCommandNames = Names(0, 9);
const std::map<unsigned char, std::string> tarvikCommandNames = Names(0, 11);

}  // namespace midi_commands
