#include "shows/show_songs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "player/demo/demo_part.h"
#include "player/demo/demo_score.h"

namespace player {

namespace {

constexpr int kDrums = 9;  // channel 10
constexpr int kKick = 36, kSnare = 38, kHat = 42;
constexpr int kPedal = 64;

/// A song as a bandleader writes it on one sheet: the tune, the names of the chords,
/// and what the rhythm section plays in every bar.
struct Sheet {
    struct KeyChange {
        int bar, sharps;
        bool minor;
    };
    struct TempoChange {
        int bar;
        double quarterNotesPerMinute;
    };
    struct Sign {
        int bar;
        const char* text;
    };
    const char* fileName;
    const char* title;
    std::uint16_t ticks;
    unsigned int beats, exponent;  // the meter: a beat is a 1/2^exponent
    // An eighth each: r and f the root and the fifth of the bass, c a chord, a a note
    // of it, k, s and h kick, snare and hat; "-" lets what sounds sound on, "." is a rest.
    std::string_view bass, chords, drums;
    int chordProgram, bassProgram, tuneProgram;
    bool pedal;
    std::vector<TempoChange> tempos;
    std::vector<KeyChange> keys;
    std::vector<Sign> signs;
    struct Bar {
        std::string_view harmony;  // a chord, or one for each half
        std::string_view tune;
    };
    std::vector<Bar> bars;
};

/// "Bbm7": the root in the bass, and the notes from the G below middle C up.
struct Chord {
    explicit Chord(std::string_view name) {
        const std::size_t rootLength = name.size() > 1 && (name[1] == 'b' || name[1] == '#') ? 2 : 1;
        root = DemoPart::NoteNumber(std::string(name.substr(0, rootLength)) + "2");
        const std::string_view kind = name.substr(rootLength);
        std::vector<int> intervals = {0, kind.starts_with("m") ? 3 : 4, 7};
        if (kind.ends_with("7"))
            intervals.push_back(10);
        constexpr int kLowest = 55;
        for (const int interval : intervals)
            notes.push_back(kLowest + (root + interval - kLowest + 60) % 12);
    }

    int root;
    std::vector<int> notes;
};

class Arrangement {
public:
    explicit Arrangement(const Sheet& sheet)
        : sheet_(sheet),
          barLength_(4.0 * sheet.beats / (1 << sheet.exponent)),
          score_(sheet.title, sheet.ticks),
          chords_(0, "Chords", 84, 46),
          bass_(1, "Bass", 100, 64),
          tune_(2, "Tune", 104, 72),
          drums_(kDrums, "Drums", 88, 64) {}

    MidiFile File() {
        score_.Meter(0, sheet_.beats, sheet_.exponent);
        for (const auto& [bar, sharps, minor] : sheet_.keys)
            score_.Key(Start_(bar), sharps, minor);
        for (const auto& [bar, tempo] : sheet_.tempos)
            score_.Tempo(Start_(bar), tempo);
        for (const auto& [bar, text] : sheet_.signs)
            score_.Marker(Start_(bar), text);
        chords_.Program(0, sheet_.chordProgram);
        bass_.Program(0, sheet_.bassProgram);
        tune_.Program(0, sheet_.tuneProgram);
        for (std::size_t index = 0; index < sheet_.bars.size(); ++index)
            Bar_(static_cast<int>(index) + 1, sheet_.bars[index]);
        std::vector<DemoPart> parts = {chords_, bass_, tune_};
        if (!sheet_.drums.empty())
            parts.push_back(drums_);
        return score_.Tracks(parts, Start_(static_cast<int>(sheet_.bars.size()) + 1));
    }

private:
    double Start_(int bar) const { return (bar - 1) * barLength_; }

    void Bar_(int number, const Sheet::Bar& bar) {
        const double at = Start_(number);
        RequireFull_(number, bar.tune);
        tune_.Phrase(at, bar.tune, number % 2 == 1 ? 100 : 92);
        const std::size_t between = bar.harmony.find(' ');
        const Chord first(bar.harmony.substr(0, between));
        const Chord second(between == std::string_view::npos ? bar.harmony : bar.harmony.substr(between + 1));
        if (sheet_.pedal) {
            chords_.Controller(at, kPedal, 127);
            chords_.Controller(at + barLength_ - 0.05, kPedal, 0);
        }
        const std::size_t eighths = sheet_.bass.size();
        for (std::size_t eighth = 0; eighth < eighths; ++eighth) {
            const Chord& chord = eighth < (eighths + 1) / 2 ? first : second;
            const double start = at + 0.5 * static_cast<double>(eighth);
            const int velocity = eighth == 0 ? 88 : 72;
            Bass_(start, Length_(sheet_.bass, eighth), sheet_.bass[eighth], chord, velocity);
            Chords_(start, Length_(sheet_.chords, eighth), sheet_.chords[eighth], chord, eighth, velocity - 8);
            if (!sheet_.drums.empty())
                Drums_(start, sheet_.drums[eighth], velocity);
        }
    }

    void RequireFull_(int number, std::string_view phrase) const {
        std::istringstream words{std::string(phrase)};
        std::string name;
        double length = 0, sum = 0;
        while (words >> name >> length)
            sum += length;
        if (std::abs(sum - barLength_) > 1e-9)
            throw std::invalid_argument(std::string(sheet_.title) + ": bar " + std::to_string(number) + " is not full");
    }

    /// With a breath before the next note, which may be the same one.
    static double Length_(std::string_view pattern, std::size_t at) {
        const std::size_t end = std::min(pattern.find_first_not_of('-', at + 1), pattern.size());
        return 0.5 * static_cast<double>(end - at) * 0.92;
    }

    void Bass_(double at, double length, char sign, const Chord& chord, int velocity) {
        if (sign == 'r')
            bass_.Note(at, length, chord.root, velocity);
        else if (sign == 'f')
            bass_.Note(at, length, chord.root + (chord.root > 40 ? -5 : 7), velocity);
    }

    void Chords_(double at, double length, char sign, const Chord& chord, std::size_t eighth, int velocity) {
        if (sign == 'a')
            chords_.Note(at, length, chord.notes[eighth % chord.notes.size()], velocity);
        else if (sign == 'c')
            for (const int note : chord.notes)
                chords_.Note(at, length, note, velocity);
    }

    void Drums_(double at, char sign, int velocity) {
        constexpr std::string_view kSigns = "ksh";
        constexpr std::array<int, kSigns.size()> kNotes = {kKick, kSnare, kHat};
        if (const std::size_t which = kSigns.find(sign); which != std::string_view::npos)
            drums_.Note(at, 0.2, kNotes[which], velocity);
    }

    const Sheet& sheet_;
    const double barLength_;
    DemoScore score_;
    DemoPart chords_, bass_, tune_, drums_;
};

const std::vector<Sheet>& Sheets() {
    static const std::vector<Sheet> sheets = {
        {.fileName = "01_curtain_up.mid",
         .title = "Curtain Up",
         .ticks = 480,
         .beats = 2,
         .exponent = 2,
         .bass = "r-f-",
         .chords = ".c.c",
         .drums = "khsh",
         .chordProgram = 0,
         .bassProgram = 58,
         .tuneProgram = 56,
         .pedal = false,
         .tempos = {{1, 116}},
         .keys = {{1, 0, false}},
         .signs = {{1, "Fanfare"}, {9, "Procession"}},
         .bars = {{"C", "G4 .5 C5 .5 E5 1"},
                  {"C", "G5 1.5 E5 .5"},
                  {"F", "A5 .5 G5 .5 F5 .5 E5 .5"},
                  {"G7", "D5 2"},
                  {"C", "G4 .5 C5 .5 E5 1"},
                  {"Am", "C6 1.5 A5 .5"},
                  {"Dm G7", "F5 .5 E5 .5 D5 .5 B4 .5"},
                  {"C", "C5 2"},
                  {"F", "A5 1 F5 .5 C5 .5"},
                  {"C", "G5 1 E5 1"},
                  {"Dm", "F5 .5 E5 .5 D5 .5 F5 .5"},
                  {"G7", "D5 2"},
                  {"F", "A5 1 C6 1"},
                  {"Em Am", "B5 1 C6 1"},
                  {"Dm G7", "A5 .5 F5 .5 D5 .5 B4 .5"},
                  {"C", "C5 1 C6 1"}}},
        {.fileName = "02_lantern_walk.mid",
         .title = "Lantern Walk",
         .ticks = 96,
         .beats = 4,
         .exponent = 2,
         .bass = "r---f---",
         .chords = "aaaaaaaa",
         .drums = "",
         .chordProgram = 24,
         .bassProgram = 32,
         .tuneProgram = 73,
         .pedal = false,
         .tempos = {{1, 76}},
         .keys = {{1, 0, true}},
         .signs = {{1, "Street"}, {5, "Bridge"}},
         .bars = {{"Am", "A4 1.5 B4 .5 C5 1 E5 1"},
                  {"F", "F5 1.5 E5 .5 C5 2"},
                  {"C G", "E5 1 D5 .5 C5 .5 B4 2"},
                  {"E7", "G#4 1 B4 1 E5 2"},
                  {"Am", "A5 1.5 G5 .5 E5 1 C5 1"},
                  {"Dm", "F5 1 E5 .5 D5 .5 A4 2"},
                  {"E7", "B4 1 D5 1 C5 .5 B4 .5 G#4 1"},
                  {"Am", "A4 3 - 1"}}},
        {.fileName = "03_paper_boats.mid",
         .title = "Paper Boats",
         .ticks = 120,
         .beats = 6,
         .exponent = 3,
         .bass = "r-.f-.",
         .chords = "..c..c",
         .drums = "k.hs.h",
         .chordProgram = 105,
         .bassProgram = 33,
         .tuneProgram = 72,
         .pedal = false,
         .tempos = {{1, 138}},
         .keys = {{1, 1, false}},
         .signs = {{1, "Launch"}, {9, "Rapids"}},
         .bars = {{"G", "D5 .5 B4 .5 G4 .5 B4 .5 D5 .5 G5 .5"},
                  {"C", "E5 1 G5 .5 E5 1 C5 .5"},
                  {"G", "D5 .5 B4 .5 G4 .5 B4 1 G4 .5"},
                  {"D7", "A4 1 F#4 .5 A4 1.5"},
                  {"G", "D5 .5 B4 .5 G4 .5 B4 .5 D5 .5 G5 .5"},
                  {"C", "E5 1 A5 .5 G5 1 E5 .5"},
                  {"D7", "F#5 .5 E5 .5 D5 .5 C5 .5 A4 .5 F#4 .5"},
                  {"G", "G4 1.5 - 1.5"},
                  {"Em", "B5 .5 G5 .5 E5 .5 G5 1 B5 .5"},
                  {"Am", "C6 1 A5 .5 E5 1 A5 .5"},
                  {"D7", "F#5 .5 A5 .5 C6 .5 B5 .5 A5 .5 F#5 .5"},
                  {"G", "G5 2 - 1"}}},
        {.fileName = "04_three_sisters.mid",
         .title = "Three Sisters",
         .ticks = 240,
         .beats = 3,
         .exponent = 2,
         .bass = "r-....",
         .chords = "..c.c.",
         .drums = "",
         .chordProgram = 21,
         .bassProgram = 32,
         .tuneProgram = 40,
         .pedal = false,
         .tempos = {{1, 150}, {9, 158}},
         .keys = {{1, -1, false}, {9, 1, false}},
         .signs = {{1, "First sister"}, {5, "Second sister"}, {9, "Third sister"}},
         .bars = {{"F", "C5 1 F5 1 A5 1"},
                  {"F", "G5 2 F5 1"},
                  {"Bb", "D5 1 F5 1 Bb5 1"},
                  {"C7", "G5 3"},
                  {"Dm", "A5 1 G5 1 F5 1"},
                  {"Gm", "Bb5 2 G5 1"},
                  {"C7", "E5 1 G5 1 C5 1"},
                  {"D7", "F#5 2 A5 1"},
                  {"G", "D5 1 G5 1 B5 1"},
                  {"Em", "B5 2 G5 1"},
                  {"C", "E5 1 G5 1 C6 1"},
                  {"Am", "A5 3"},
                  {"D7", "A5 1 B5 1 C6 1"},
                  {"G", "B5 2 G5 1"},
                  {"D7", "F#5 1 E5 1 D5 1"},
                  {"G", "G5 3"}}},
        {.fileName = "05_night_ferry.mid",
         .title = "Night Ferry",
         .ticks = 480,
         .beats = 4,
         .exponent = 2,
         .bass = "r---r---",
         .chords = "c---c---",
         .drums = "",
         .chordProgram = 89,
         .bassProgram = 39,
         .tuneProgram = 60,
         .pedal = true,
         .tempos = {{1, 60}, {8, 48}},
         .keys = {{1, -1, true}},
         .signs = {{1, "Harbour"}, {5, "Open water"}},
         .bars = {{"Dm", "D5 2 F5 1 E5 1"},
                  {"Bb", "D5 3 - 1"},
                  {"Gm A7", "G4 1 Bb4 1 A4 2"},
                  {"Dm", "D5 4"},
                  {"F", "A5 2 G5 1 F5 1"},
                  {"C", "G5 3 E5 1"},
                  {"Gm A7", "Bb4 1 D5 1 C#5 2"},
                  {"D", "D5 4"}}},
        {.fileName = "06_market_day.mid",
         .title = "Market Day",
         .ticks = 192,
         .beats = 4,
         .exponent = 2,
         .bass = "r.rf.rr.",
         .chords = "..c..c..",
         .drums = "khshkksh",
         .chordProgram = 16,
         .bassProgram = 36,
         .tuneProgram = 65,
         .pedal = false,
         .tempos = {{1, 126}},
         .keys = {{1, 1, false}, {9, 3, false}},
         .signs = {{1, "Stalls"}, {9, "Rush"}},
         .bars = {{"G", "G4 .5 B4 .5 D5 1 E5 .5 D5 .5 B4 1"},
                  {"C", "C5 .5 E5 .5 G5 1 E5 1 C5 1"},
                  {"G", "B4 .5 D5 .5 G5 1 F#5 .5 E5 .5 D5 1"},
                  {"D7", "A4 1 C5 .5 B4 .5 A4 2"},
                  {"G", "G4 .5 B4 .5 D5 1 E5 .5 D5 .5 B4 1"},
                  {"C", "E5 1 G5 .5 A5 .5 G5 1 E5 1"},
                  {"D7", "F#5 .5 A5 .5 C6 1 A5 .5 F#5 .5 D5 1"},
                  {"E7", "E5 1 G#5 1 B5 1 D6 1"},
                  {"A", "C#6 1 A5 .5 E5 .5 C#5 1 E5 1"},
                  {"D", "F#5 1 A5 1 F#5 1 D5 1"},
                  {"E7", "G#5 .5 F#5 .5 E5 1 D5 .5 C#5 .5 B4 1"},
                  {"A", "A4 1 C#5 1 A5 2"}}},
        {.fileName = "07_five_stairs.mid",
         .title = "Five Stairs",
         .ticks = 100,
         .beats = 5,
         .exponent = 2,
         .bass = "r--rr-f-f-",
         .chords = "..c...c.c.",
         .drums = "k.hks.h.s.",
         .chordProgram = 4,
         .bassProgram = 33,
         .tuneProgram = 11,
         .pedal = false,
         .tempos = {{1, 144}},
         .keys = {{1, 1, true}},
         .signs = {{1, "Up"}, {5, "Down"}},
         .bars = {{"Em", "E5 1.5 G5 .5 B5 1 A5 1 G5 1"},
                  {"Em", "F#5 1.5 E5 .5 B4 3"},
                  {"C", "C5 1 E5 1 G5 1 E5 2"},
                  {"B7", "D#5 1 F#5 1 A5 1 F#5 2"},
                  {"Am", "C6 1.5 B5 .5 A5 1 E5 1 C5 1"},
                  {"Em", "B5 1.5 G5 .5 E5 1 B4 2"},
                  {"F#m B7", "A4 1 C#5 1 F#5 1 D#5 2"},
                  {"Em", "E5 3 - 2"}}},
        {.fileName = "08_rain_letter.mid",
         .title = "Rain Letter",
         .ticks = 480,
         .beats = 4,
         .exponent = 2,
         .bass = "r---f---",
         .chords = "aaaaaaaa",
         .drums = "",
         .chordProgram = 0,
         .bassProgram = 32,
         .tuneProgram = 42,
         .pedal = true,
         .tempos = {{1, 84}, {9, 72}, {10, 60}},
         .keys = {{1, -2, false}},
         .signs = {{1, "Drops"}, {5, "Puddles"}, {9, "Last line"}},
         .bars = {{"Bb", "F4 1 Bb4 1 D5 2"},
                  {"Gm", "D5 1.5 C5 .5 Bb4 2"},
                  {"Eb", "G4 1 Bb4 1 Eb5 1 D5 1"},
                  {"F7", "C5 3 - 1"},
                  {"Bb", "F5 1.5 Eb5 .5 D5 1 Bb4 1"},
                  {"Gm", "G5 2 F5 1 D5 1"},
                  {"Cm F7", "Eb5 1 C5 1 A4 1 F4 1"},
                  {"Bb", "Bb4 3 - 1"},
                  {"Eb F7", "G4 1 Bb4 1 A4 1 C5 1"},
                  {"Bb", "Bb4 4"}}},
        {.fileName = "09_turning_wheel.mid",
         .title = "Turning Wheel",
         .ticks = 48,
         .beats = 7,
         .exponent = 3,
         .bass = "r-f-r--",
         .chords = ".c.c.cc",
         .drums = "khshkhh",
         .chordProgram = 27,
         .bassProgram = 38,
         .tuneProgram = 80,
         .pedal = false,
         .tempos = {{1, 132}},
         .keys = {{1, 0, true}, {7, 2, true}},
         .signs = {{1, "Hub"}, {7, "Rim"}},
         .bars = {{"Am", "A4 1 C5 1 E5 1.5"},
                  {"G", "D5 1 B4 1 G4 1.5"},
                  {"F", "C5 .5 A4 .5 F4 1 A4 1.5"},
                  {"E7", "G#4 1 B4 1 E5 1.5"},
                  {"Am", "A5 1 E5 1 C5 1.5"},
                  {"F#7", "A#4 1 C#5 1 F#5 1.5"},
                  {"Bm", "B4 1 D5 1 F#5 1.5"},
                  {"A", "E5 1 C#5 1 A4 1.5"},
                  {"Em F#7", "G5 .5 E5 .5 C#5 1 A#4 1.5"},
                  {"Bm", "B4 2 - 1.5"}}},
        {.fileName = "10_last_bow.mid",
         .title = "Last Bow",
         .ticks = 480,
         .beats = 4,
         .exponent = 2,
         .bass = "r-f-r-f-",
         .chords = ".c.c.c.c",
         .drums = "khshkhsh",
         .chordProgram = 0,
         .bassProgram = 58,
         .tuneProgram = 56,
         .pedal = false,
         .tempos = {{1, 112}, {15, 96}, {16, 72}},
         .keys = {{1, 0, false}, {9, 2, false}},
         .signs = {{1, "Company"}, {9, "Soloists"}, {13, "Everyone"}},
         .bars = {{"C", "C5 1 E5 1 G5 1.5 E5 .5"},
                  {"F", "A5 1 G5 .5 F5 .5 C5 2"},
                  {"C", "E5 1 G5 1 C6 1.5 G5 .5"},
                  {"G7", "B5 1 A5 .5 G5 .5 D5 2"},
                  {"Am", "C6 1 A5 1 E5 1.5 A5 .5"},
                  {"Em", "G5 1 E5 .5 G5 .5 B5 2"},
                  {"F G7", "A5 1 F5 1 D5 1 B4 1"},
                  {"A7", "C#5 1 E5 1 A5 2"},
                  {"D", "D5 1 F#5 1 A5 1.5 F#5 .5"},
                  {"G", "B5 1 A5 .5 G5 .5 D5 2"},
                  {"D", "F#5 1 A5 1 D6 1.5 A5 .5"},
                  {"A7", "C#6 1 B5 .5 A5 .5 E5 2"},
                  {"Bm", "D6 1 B5 1 F#5 1 B5 1"},
                  {"G", "G5 1 B5 1 D6 1 B5 1"},
                  {"Em A7", "G5 1 E5 1 C#5 1 E5 1"},
                  {"D", "D5 4"}}},
    };
    return sheets;
}

}  // namespace

std::vector<DemoSong> ShowSongs() {
    std::vector<DemoSong> songs;
    for (const Sheet& sheet : Sheets())
        songs.push_back({sheet.fileName, Arrangement(sheet).File()});
    return songs;
}

}  // namespace player
