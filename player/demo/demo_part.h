#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace player {

/// One instrument of a demo song, written down in any order, as a composer does.
///
/// Owner:   a demo song; a value.
/// Threads: one at a time.
/// Units:   quarter notes since the start of the song; channels 0..15; notes as
///          names, C4 being 60.
/// Errors:  std::invalid_argument for a phrase that is no music.
class DemoPart {
public:
    struct Event {
        double at;
        int rank;  // at one time: 0 ends a note, 1 sets something, 2 begins a note
        std::uint8_t status;
        std::uint8_t data1;
        std::uint8_t data2;
    };

    DemoPart(int channel, std::string name, int volume, int pan);

    void Program(double at, int program);
    void Controller(double at, int number, int value);
    /// value from -1 to 1, the ends being the whole range of the bend.
    void Bend(double at, double value);
    void Note(double at, double length, int note, int velocity);
    /// Notes and their lengths one after another, "-" being a rest: "G4 1 A4 .5 - .5".
    void Phrase(double at, std::string_view phrase, int velocity);
    /// Every named note at once: "G3 B3 D4".
    void Chord(double at, double length, std::string_view notes, int velocity);

    /// The number of a note, as 60 for "C4" and 61 for "C#4" and "Db4".
    static int NoteNumber(std::string_view name);

    const std::string& Name() const { return name_; }
    /// In the order written.
    const std::vector<Event>& Events() const { return events_; }

private:
    void Add_(double at, int rank, int kind, int data1, int data2);

    int channel_;
    std::string name_;
    std::vector<Event> events_;
};

}  // namespace player
