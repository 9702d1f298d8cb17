#include "player/demo/demo_songs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>

#include "player/demo/demo_part.h"
#include "player/demo/demo_score.h"

namespace player {

namespace {

// General MIDI percussion, on channel 10.
constexpr int kDrums = 9;
constexpr int kKick = 36, kSideStick = 37, kSnare = 38, kHat = 42, kOpenHat = 46, kCrash = 49, kTambourine = 54,
              kTriangle = 81;
constexpr int kModulation = 1, kPan = 10, kExpression = 11;

/// A swell of the expression controller over so many quarter notes.
void Swell(DemoPart& part, double at, double length, int from, int to) {
    constexpr int kSteps = 8;
    for (int step = 0; step <= kSteps; ++step)
        part.Controller(at + length * step / kSteps, kExpression, from + (to - from) * step / kSteps);
}

/// G major, a verse with its last lines a tone higher, and a slowing end.
MidiFile HarbourLights() {
    DemoScore score("Harbour Lights", 480);
    score.Meter(0, 4, 2);
    score.Key(0, 1, false);
    score.Tempo(0, 100);
    score.Marker(0, "Intro");
    score.Marker(8, "Verse");
    score.Marker(40, "Last lines");
    score.Key(40, 3, false);
    score.Tempo(40, 104);
    constexpr std::array<double, 6> kSlowing = {96, 90, 84, 76, 68, 58};
    for (std::size_t beat = 0; beat < kSlowing.size(); ++beat)
        score.Tempo(56 + static_cast<double>(beat), kSlowing[beat]);

    DemoPart guitar(0, "Guitar", 92, 50);
    DemoPart bass(1, "Bass", 96, 64);
    DemoPart melody(2, "Melody", 100, 70);
    DemoPart strings(3, "Strings", 70, 40);
    DemoPart drums(kDrums, "Drums", 80, 64);
    guitar.Program(0, 24);
    bass.Program(0, 32);
    melody.Program(0, 73);
    melody.Program(39.9, 40);  // the violin takes the tune from the flute
    strings.Program(0, 48);
    drums.Program(0, 0);

    // From the bass note up, a chord a half bar.
    constexpr std::string_view kG = "G2 D3 G3 B3 D4", kDF = "F#2 D3 G3 A3 D4", kD = "D3 A3 D4 F#4 A4",
                               kEm = "E2 D3 G3 B3 E4", kC = "C3 E3 G3 C4 E4", kA = "A2 E3 A3 C#4 E4",
                               kE = "E2 E3 G#3 B3 E4", kE7 = "E2 D3 G#3 B3 E4", kFm = "F#2 F#3 A3 C#4 F#4";
    constexpr std::array<std::string_view, 32> kChords = {kG, kG, kDF, kDF, kG, kG, kD, kD,  kEm, kEm, kC,
                                                          kC, kG, kG,  kD,  kD, kC, kC, kD,  kE7, kA,  kA,
                                                          kE, kE, kFm, kFm, kD, kD, kE, kE7, kA,  kA};
    for (std::size_t half = 0; half < kChords.size(); ++half) {
        std::array<std::string_view, 5> notes;
        for (std::size_t note = 0, from = 0; note < notes.size(); ++note) {
            const std::size_t to = std::min(kChords[half].find(' ', from), kChords[half].size());
            notes[note] = kChords[half].substr(from, to - from);
            from = to + 1;
        }
        const double at = 2.0 * static_cast<double>(half);
        const int root = DemoPart::NoteNumber(notes[0]);
        if (half >= 30) {  // the last bar is one chord, rolled
            if (half == 30)
                for (std::size_t note = 0; note < notes.size(); ++note)
                    guitar.Note(at + 0.06 * static_cast<double>(note), 3.6, DemoPart::NoteNumber(notes[note]), 72);
        } else {
            constexpr std::array<std::size_t, 4> kOdd = {0, 2, 3, 4}, kEven = {1, 3, 4, 2};
            for (std::size_t step = 0; step < 4; ++step)
                guitar.Note(at + 0.5 * static_cast<double>(step), 0.9,
                            DemoPart::NoteNumber(notes[half % 2 == 0 ? kOdd[step] : kEven[step]]), step == 0 ? 80 : 64);
        }
        if (half >= 4 && half != 31)
            bass.Note(at, half == 30 ? 3.8 : 1.7, root > 40 ? root - 12 : root, 84);
        if (half >= 12 && half % 2 == 0) {
            const bool changes = kChords[half] != kChords[half + 1];
            Swell(strings, at, 2, 60, 110);
            strings.Chord(at, changes ? 2 : 3.9, kChords[half].substr(kChords[half].find(' ') + 1), 58);
            if (changes)
                strings.Chord(at + 2, 1.9, kChords[half + 1].substr(kChords[half + 1].find(' ') + 1), 58);
        }
    }

    constexpr std::array<std::string_view, 14> kTune = {"B4 1 D5 1 G5 1.5 F#5 .5",        "F#5 1 E5 .5 D5 .5 A4 2",
                                                        "G4 1 B4 1 E5 1.5 D5 .5",         "E5 1 D5 .5 C5 .5 G4 2",
                                                        "B4 1 D5 1 G5 1.5 A5 .5",         "A5 1 G5 .5 F#5 .5 D5 2",
                                                        "E5 1 G5 1 E5 .5 D5 .5 C5 1",     "D5 1 F#5 1 G#5 1 B5 1",
                                                        "C#6 1.5 B5 .5 A5 1 E5 1",        "B5 1 A5 .5 G#5 .5 E5 2",
                                                        "A5 1 G#5 .5 F#5 .5 C#5 1 F#5 1", "F#5 1 A5 1 D6 1 C#6 1",
                                                        "B5 1.5 A5 .5 G#5 1 B5 1",        "A5 4"};
    for (std::size_t bar = 0; bar < kTune.size(); ++bar)
        melody.Phrase(8 + 4.0 * static_cast<double>(bar), kTune[bar], bar < 8 ? 88 : 96);
    for (const double held : {14.0, 22.0, 30.0, 46.0, 61.0}) {  // vibrato on the long notes
        melody.Controller(held + 0.5, kModulation, 50);
        melody.Controller(held + 1.9, kModulation, 0);
    }

    for (double bar = 24; bar < 60; bar += 4) {
        for (double eighth = 0; eighth < 4; eighth += 0.5)
            drums.Note(bar + eighth, 0.2, kHat, eighth == std::floor(eighth) ? 56 : 40);
        for (const double beat : {0.0, 2.0})
            drums.Note(bar + beat, 0.3, kKick, 80);
        drums.Note(bar + 2.5, 0.3, kKick, 64);
        for (const double beat : {1.0, 3.0})
            drums.Note(bar + beat, 0.2, bar < 40 ? kSideStick : kSnare, 66);
    }
    drums.Note(40, 1.5, kCrash, 78);
    drums.Note(60, 3, kCrash, 56);
    return score.Tracks({guitar, bass, melody, strings, drums}, 64);
}

/// A waltz from D minor to D major with a galop in 2/4 at its end, in one track.
MidiFile AtticWaltz() {
    DemoScore score("Attic Waltz", 96);
    score.Meter(0, 3, 2);
    score.Key(0, -1, true);
    score.Tempo(0, 156);
    score.Marker(24, "In F");
    score.Marker(48, "In D");
    score.Key(48, 2, false);
    for (int beat = 0; beat < 6; ++beat)  // holding back before the change
        score.Tempo(42 + beat, 150 - 8 * beat);
    score.Tempo(48, 164);
    score.Marker(72, "Galop");
    score.Meter(72, 2, 2);
    score.Tempo(72, 196);

    DemoPart chords(0, "Accordion", 76, 50);
    DemoPart bass(1, "Tuba", 92, 64);
    DemoPart tune(2, "Tune", 100, 74);
    DemoPart drums(kDrums, "Percussion", 84, 64);
    chords.Program(0, 21);
    bass.Program(0, 58);
    tune.Program(0, 71);
    tune.Program(23.9, 40);
    tune.Program(47.9, 71);
    drums.Program(0, 0);

    struct Harmony {
        std::string_view root, fifth, chord;
    };
    constexpr Harmony kDm{"D3", "A2", "F3 A3 D4"}, kGm{"G2", "D3", "G3 Bb3 D4"}, kA7{"A2", "E3", "G3 A3 C#4"},
        kF{"F2", "C3", "F3 A3 C4"}, kC7{"C3", "G2", "E3 G3 Bb3"}, kD{"D3", "A2", "F#3 A3 D4"},
        kG{"G2", "D3", "G3 B3 D4"};
    constexpr std::array<Harmony, 24> kBars = {kDm, kDm, kGm, kGm, kA7, kA7, kDm, kDm, kF,  kC7, kC7, kF,
                                               kGm, kDm, kA7, kA7, kD,  kD,  kG,  kG,  kA7, kA7, kD,  kD};
    constexpr std::array<std::string_view, 24> kTune = {"A5 1 F5 1 D5 1",   "E5 .5 F5 .5 G5 1 A5 1",
                                                        "Bb5 1 G5 1 D5 1",  "A5 .5 G5 .5 F5 1 G5 1",
                                                        "E5 1 C#5 1 A4 1",  "B4 .5 C#5 .5 D5 1 E5 1",
                                                        "F5 2 E5 1",        "D5 3",
                                                        "C5 1 F5 1 A5 1",   "Bb5 2 G5 1",
                                                        "E5 1 G5 1 Bb5 1",  "A5 2 F5 1",
                                                        "D5 1 G5 1 Bb5 1",  "A5 1 F5 1 D5 1",
                                                        "C#5 1 E5 1 G5 1",  "A5 2 - 1",
                                                        "A5 1 F#5 1 D5 1",  "E5 .5 F#5 .5 G5 1 A5 1",
                                                        "B5 1 G5 1 D5 1",   "A5 .5 G5 .5 F#5 1 G5 1",
                                                        "E5 1 C#5 1 A4 1",  "B4 .5 C#5 .5 D5 1 E5 1",
                                                        "F#5 1 A5 1 C#6 1", "D6 3"};
    for (std::size_t bar = 0; bar < kBars.size(); ++bar) {
        const double at = 3.0 * static_cast<double>(bar);
        const Harmony& harmony = kBars[bar];
        bass.Note(at, 0.8, DemoPart::NoteNumber(bar % 2 == 0 ? harmony.root : harmony.fifth) - 12, 92);
        chords.Chord(at + 1, 0.4, harmony.chord, 66);
        chords.Chord(at + 2, 0.4, harmony.chord, 60);
        tune.Phrase(at, kTune[bar], bar < 16 ? 86 : 98);
        drums.Note(at, 0.3, kKick, 70);
        drums.Note(at + 1, 0.2, kHat, 46);
        drums.Note(at + 2, 0.2, kHat, 42);
        if (bar >= 16)
            drums.Note(at + 1, 0.2, kTambourine, 58);
        if (bar % 4 == 3)
            drums.Note(at + 2, 0.5, kTriangle, 50);
    }

    constexpr std::array<Harmony, 7> kGalop = {kD, kG, kA7, kD, kG, kA7, kD};
    constexpr std::array<std::string_view, 7> kGalopTune = {"D6 .5 C#6 .5 B5 .5 A5 .5",
                                                            "G5 .5 A5 .5 B5 1",
                                                            "C#6 .5 B5 .5 A5 .5 G5 .5",
                                                            "F#5 .5 E5 .5 D5 1",
                                                            "B5 .5 A5 .5 G5 .5 B5 .5",
                                                            "A5 .5 G5 .5 E5 .5 C#5 .5",
                                                            "D5 1 D6 1"};
    for (std::size_t bar = 0; bar < kGalop.size(); ++bar) {
        const double at = 72 + 2.0 * static_cast<double>(bar);
        for (const double beat : {0.0, 1.0}) {
            bass.Note(at + beat, 0.4, DemoPart::NoteNumber(beat == 0 ? kGalop[bar].root : kGalop[bar].fifth) - 12, 96);
            chords.Chord(at + beat + (bar == 6 ? 0 : 0.5), 0.3, kGalop[bar].chord, 74);
            drums.Note(at + beat, 0.2, beat == 0 ? kKick : kSnare, 78);
            drums.Note(at + beat + 0.5, 0.2, kTambourine, 54);
        }
        tune.Phrase(at, kGalopTune[bar], 104);
    }
    drums.Note(85, 1, kCrash, 84);
    return score.OneTrack({chords, bass, tune, drums}, 88);
}

/// A funk groove in E minor with four bars of 7/8 and a last round a tone higher.
MidiFile SlowFreight() {
    DemoScore score("Slow Freight", 240);
    score.Meter(0, 4, 2);
    score.Key(0, 1, true);
    score.Tempo(0, 108);
    score.Marker(0, "Groove");
    score.Marker(24, "Sevens");
    score.Meter(24, 7, 3);
    score.Tempo(24, 116);
    score.Marker(38, "Uphill");
    score.Meter(38, 4, 2);
    score.Key(38, 3, true);
    score.Tempo(38, 112);
    score.Tempo(46, 118);

    DemoPart keys(0, "Keys", 84, 46);
    DemoPart bass(1, "Bass", 104, 64);
    DemoPart lead(2, "Saxophone", 98, 72);
    DemoPart guitar(3, "Guitar", 70, 90);
    DemoPart drums(kDrums, "Drums", 96, 64);
    keys.Program(0, 4);
    keys.Program(23.9, 16);  // organ for the sevens
    keys.Program(37.9, 4);
    bass.Program(0, 36);
    lead.Program(0, 65);
    guitar.Program(0, 27);
    drums.Program(0, 0);

    struct Harmony {
        int root;  // bass note
        std::string_view chord;
        std::string_view tune;
    };
    // Bars of four quarter notes, then the first seven eighths, then four again.
    constexpr std::array<Harmony, 6> kGroove = {{{40, "G3 B3 D4", ""},
                                                 {40, "G3 B3 D4", ""},
                                                 {45, "G3 C#4 E4", "E5 .5 G5 .5 A5 1 G5 .5 E5 .5 D5 .5 E5 .5"},
                                                 {40, "G3 B3 D4", "E5 1.5 - .5 B4 .5 D5 .5 E5 1"},
                                                 {36, "E3 Bb3 D4", "G5 .5 E5 .5 C5 .5 E5 .5 G5 1 Bb5 1"},
                                                 {35, "D#3 A3 C4", "A5 .5 F#5 .5 D#5 .5 F#5 .5 B5 1.5 - .5"}}};
    constexpr std::array<Harmony, 4> kSevens = {{{40, "G3 B3 E4", "B5 1 A5 .5 G5 1 E5 1"},
                                                 {38, "F#3 A3 D4", "A5 1 G5 .5 F#5 1 D5 1"},
                                                 {36, "E3 G3 C4", "G5 1 F#5 .5 E5 1 C5 1"},
                                                 {35, "D#3 F#3 B3", "F#5 .5 G5 .5 F#5 .5 D#5 1 B4 1"}}};
    constexpr std::array<Harmony, 4> kUphill = {{{42, "A3 C#4 E4", "F#5 .5 A5 .5 B5 1 A5 .5 F#5 .5 E5 .5 F#5 .5"},
                                                 {47, "A3 D#4 F#4", "F#5 1.5 - .5 C#5 .5 E5 .5 F#5 1"},
                                                 {38, "F#3 C4 E4", "A5 .5 F#5 .5 D5 .5 F#5 .5 A5 1 C6 1"},
                                                 {37, "F3 B3 D4", "B5 .5 G#5 .5 F5 .5 G#5 .5 C#6 1.5 - .5"}}};

    const auto grooveBar = [&](double at, const Harmony& harmony, bool strong) {
        struct Step {
            double at, length;
            int interval;
        };
        for (const Step& step : {Step{0, 0.5, 0},
                                 {0.75, 0.2, 0},
                                 {1.5, 0.4, 3},
                                 {2, 0.5, 5},
                                 {2.75, 0.2, 12},
                                 {3.25, 0.2, 10},
                                 {3.5, 0.4, 7}})
            bass.Note(at + step.at, step.length, harmony.root + step.interval, step.at == 0 ? 104 : 88);
        for (const double stab : {0.0, 0.75, 1.5, 2.5, 3.25})
            keys.Chord(at + stab, stab == 1.5 ? 0.8 : 0.22, harmony.chord, stab == 0 ? 82 : 70);
        for (double sixteenth = 0.25; sixteenth < 4; sixteenth += 0.5)
            guitar.Chord(at + sixteenth, 0.12, harmony.chord, 52);
        for (double step = 0; step < 4; step += 0.25)
            if (step != 3.75)
                drums.Note(at + step, 0.1, kHat, std::fmod(step, 0.5) == 0 ? 66 : 40);
        drums.Note(at + 3.75, 0.2, kOpenHat, 58);
        for (const double kick : {0.0, 0.75, 2.0, 2.75})
            drums.Note(at + kick, 0.2, kKick, kick == 0 ? 104 : 86);
        for (const double snare : {1.0, 3.0})
            drums.Note(at + snare, 0.2, kSnare, strong ? 104 : 92);
        lead.Phrase(at, harmony.tune, strong ? 104 : 94);
    };
    for (std::size_t bar = 0; bar < kGroove.size(); ++bar)
        grooveBar(4.0 * static_cast<double>(bar), kGroove[bar], false);
    for (std::size_t bar = 0; bar < kSevens.size(); ++bar) {
        const double at = 24 + 3.5 * static_cast<double>(bar);
        const Harmony& harmony = kSevens[bar];
        bass.Note(at, 0.9, harmony.root, 96);
        bass.Note(at + 1, 0.45, harmony.root + 12, 84);
        bass.Note(at + 1.5, 0.9, harmony.root, 92);
        bass.Note(at + 2.5, 0.9, harmony.root + 7, 88);
        keys.Chord(at, 3.4, harmony.chord, 72);
        for (double eighth = 0; eighth < 3.5; eighth += 0.5)
            drums.Note(at + eighth, 0.2, kHat, eighth == 0 || eighth == 1.5 || eighth == 2.5 ? 74 : 48);
        drums.Note(at, 0.3, kKick, 98);
        drums.Note(at + 1.5, 0.3, kKick, 84);
        drums.Note(at + 2.5, 0.3, kSnare, 92);
        lead.Phrase(at, harmony.tune, 98);
    }
    for (std::size_t bar = 0; bar < kUphill.size(); ++bar)
        grooveBar(38 + 4.0 * static_cast<double>(bar), kUphill[bar], true);
    for (const double scoop : {15.0, 42.0, 52.0}) {  // into a note from below
        lead.Bend(scoop - 3, -0.5);
        lead.Bend(scoop - 2.9, -0.2);
        lead.Bend(scoop - 2.8, 0);
    }

    // Everyone on the last chord.
    bass.Note(54, 2.5, 42, 108);
    keys.Chord(54, 2.5, "A3 C#4 E4 G#4", 88);
    guitar.Chord(54, 2.5, "F#3 C#4 E4", 70);
    lead.Note(54, 2.5, DemoPart::NoteNumber("F#5"), 104);
    drums.Note(54, 0.3, kKick, 112);
    drums.Note(54, 3, kCrash, 108);
    for (int step = 0; step <= 6; ++step)
        guitar.Controller(50 + 0.5 * step, kPan, 90 - 4 * step);
    return score.Tracks({keys, bass, lead, guitar, drums}, 58);
}

}  // namespace

std::vector<DemoSong> DemoSongs() {
    return {{"1_harbour_lights.mid", HarbourLights()},
            {"2_attic_waltz.mid", AtticWaltz()},
            {"3_slow_freight.mid", SlowFreight()}};
}

}  // namespace player
