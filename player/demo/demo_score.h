#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "player/demo/demo_part.h"
#include "player/midi_file.h"

namespace player {

/// What the parts of a demo song share, written down in any order like them.
///
/// Owner:   a demo song; a value.
/// Threads: one at a time.
/// Units:   quarter notes since the start of the song.
class DemoScore {
public:
    DemoScore(std::string title, std::uint16_t ticksPerQuarter);

    void Tempo(double at, double quarterNotesPerMinute);
    /// A beat is a 1/2^exponent, and a click one beat.
    void Meter(double at, unsigned int beats, unsigned int exponent);
    void Key(double at, int sharps, bool minor);
    void Marker(double at, std::string text);

    /// A track for the score and one for each part; the song ends at end.
    MidiFile Tracks(const std::vector<DemoPart>& parts, double end) const;
    /// Everything in one track.
    MidiFile OneTrack(const std::vector<DemoPart>& parts, double end) const;

private:
    struct Meta {
        double at;
        std::uint8_t type;
        std::string payload;
    };

    void Meta_(double at, std::uint8_t type, std::initializer_list<unsigned int> bytes);
    std::uint32_t Tick_(double at) const;
    MidiTrack Track_(const std::string& name, std::vector<Meta> metas, std::vector<DemoPart::Event> events,
                     double end) const;

    std::string title_;
    std::uint16_t ticks_;
    std::vector<Meta> metas_;
};

}  // namespace player
