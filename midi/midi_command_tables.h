#pragma once

#include <functional>
#include <map>
#include <string>

#include "midi/vemo_midi_export.h"

// The transport commands by their ids. Made when the library is loaded, and not to
// be read before; any thread may read them.
namespace midi_commands {

/// What a command does: it posts its notification, and the host carries it out.
VEMO_MIDI_EXPORT extern const std::map<unsigned char, std::function<void()>> commandIds;

/// The names of those commands that each of the hosts offers.
VEMO_MIDI_EXPORT extern const std::map<unsigned char, std::string> commandNames;
VEMO_MIDI_EXPORT extern const std::map<unsigned char, std::string> ambrelCommandNames;
VEMO_MIDI_EXPORT extern const std::map<unsigned char, std::string> tarvikCommandNames;

}  // namespace midi_commands
