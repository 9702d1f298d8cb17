#pragma once

#include <string_view>

/// The messages of the notification channel. Constants: usable before and after
/// every other global object.
namespace notify::names {

/// Payload: const std::map<unsigned short, unsigned char>*, (port << 8 | channel) to program.
inline constexpr std::string_view currentProgramIds = "currentProgramIds";
/// No payload.
inline constexpr std::string_view disarmedPlayback = "disarmedPlayback";
/// A MIDI message has fired the command; the host carries it out. No payload.
inline constexpr std::string_view midiCommandConductBeat = "midiCommandConductBeat";
inline constexpr std::string_view midiCommandContinuousMode = "midiCommandContinuousMode";
inline constexpr std::string_view midiCommandPlay = "midiCommandPlay";
inline constexpr std::string_view midiCommandPause = "midiCommandPause";
inline constexpr std::string_view midiCommandStop = "midiCommandStop";
inline constexpr std::string_view midiCommandNextSong = "midiCommandNextSong";
inline constexpr std::string_view midiCommandPreviousSong = "midiCommandPreviousSong";
inline constexpr std::string_view midiCommandNextMarker = "midiCommandNextMarker";
inline constexpr std::string_view midiCommandPreviousMarker = "midiCommandPreviousMarker";
inline constexpr std::string_view midiCommandContinue = "midiCommandContinue";
inline constexpr std::string_view midiCommandNextPatch = "midiCommandNextPatch";
inline constexpr std::string_view midiCommandPreviousPatch = "midiCommandPreviousPatch";
/// The learned commands have changed. No payload.
inline constexpr std::string_view midiCommandLearned = "midiCommandLearned";
/// A source of commands is connected and the commands are bound. No payload.
inline constexpr std::string_view midiSourceConnected = "midiSourceConnected";

}  // namespace notify::names
