#pragma once

#include <chrono>
#include <cstdint>

namespace player {

/// What happened at one moment of playing: a song began or ended, or one clock was
/// played. Plain numbers, so that the clock thread writes one without allocating;
/// texts are looked up by whoever shows it.
struct PlaybackRecord {
    enum class Kind {
        kSong,      // a song begins; published before its first clock
        kClock,     // one cycle was played
        kCountIn,   // one clock of a count-in was played; the place is where the music will start
        kDownbeat,  // the click at this tick has now been heard; only the tick counts
        kEnd        // a song has ended
    };

    Kind kind = Kind::kClock;
    unsigned int song = 0;  // from 1, in playing order
    std::uint32_t tick = 0;
    int clockNumber = 0;  // within the click
    int clocksPerClick = 0;
    std::chrono::nanoseconds time{0};        // of the host's clock
    std::chrono::nanoseconds sinceStart{0};  // since the song's first clock
    double clockSeconds = 0;                 // the length of the interval to the next clock, as scheduled
    bool firstAfterStart = false;            // no interval lies between it and the clock before
    std::uint32_t bar = 1;
    std::uint32_t beat = 1;
    double tempo = 0;  // clicks per minute
    int meterBeats = 4;
    int meterUnit = 4;
    int keySharps = 0;
    bool keyMinor = false;
    int transposition = 0;
    unsigned int page = 1;
    int countInClocks = 0;  // of kCountIn: clocks until the music, with this one
    int countInClocksPerBar = 0;
    int displayDelayMilliseconds = 0;  // how much later than its clock it is heard
    bool hasMarker = false;
    std::uint32_t markerTick = 0;
};

}  // namespace player
