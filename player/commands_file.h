#pragma once

#include <map>
#include <optional>
#include <string>

#include "midi/learned_command.h"

namespace player {

/// What a settings file of the engine's learned commands holds, as its bytes, so that
/// the player writes them without waiting for the engine's end.
///
/// Threads: any.
/// Units:   command ids; source: the index of an input device.
/// Errors:  none.
using LearnedCommands = std::map<unsigned char, midi_commands::LearnedCommand>;

/// As the engine writes it.
std::string CommandsFileText(const LearnedCommands& learned, std::optional<unsigned char> source);

/// Whether it is what the engine writes: the engine reads more, and would take a message
/// that nothing sends, or records left out, for what was learned.
bool IsCommandsFileText(const std::string& text);

// Of a text that is such a file's.
LearnedCommands LearnedIn(const std::string& text);
std::string WithSource(std::string text, std::optional<unsigned char> source);

/// Of any text: what it says of commands alone.
std::string WithoutSource(std::string text);

}  // namespace player
