#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "midi/how_to_play.h"
#include "midi/how_to_play_with_midi_clock.h"
#include "player/imported_song.h"
#include "player/show_document.h"

namespace player {

/// How a song is to be played.
///
/// Units: ticks of the song; track ids 0..15; programs 0..127.
struct SongToPlay {
    std::shared_ptr<const ImportedSong> song;
    std::string key;                       // of the show's song
    unsigned int number = 1;               // as records tell it
    std::uint64_t token = 0;               // for whoever is told that the music went on to it
    std::uint32_t startTick = 0;           // rounded down to a clock
    std::optional<std::uint32_t> endTick;  // what lies at or after it is not played
    std::vector<std::uint32_t> pauses;     // ascending
    std::optional<ShowDocument::ClickTrack> click;
    std::map<unsigned short, unsigned char> firstPrograms;  // the show file's, until the song chooses others
    std::map<unsigned short, unsigned char> userPrograms;   // the operator's, instead of all others
    std::set<unsigned short> mutedTracks;
    // The user's controls from this song on; empty: they stay as they are.
    std::optional<double> tempoScale;
    std::optional<int> transposition;
};

/// A song as the host plays it: with a tracker for filling, ahead of the music, and
/// one for playing. They are made when the song is chosen, so that going on to it
/// takes the clock thread no time.
///
/// Owner:   shared by the host and its filler.
/// Threads, Lock: the host's song mutex, but for what is constant.
struct LoadedSong {
    LoadedSong(SongToPlay toPlay, UserControls& userControls, MidiClock& clock);
    LoadedSong(const LoadedSong&) = delete;
    LoadedSong& operator=(const LoadedSong&) = delete;

    SongToPlay plan;
    const std::uint32_t ticksPerClock;
    std::uint32_t startTick;
    const std::uint32_t endTick;        // exclusive
    std::vector<std::uint32_t> pauses;  // the clocks before which it pauses
    HowToPlay fillTracker;
    HowToPlayWithMidiClock playTracker;
};

}  // namespace player
