// What the time codes are at each rate, one a line, for a reader who computes them in another way:
//   L RATE FRAME LABEL FULL-FRAME QUARTER-FRAMES   stepped from midnight on: every label of one hour, and of the others
//                                                  those beside a full minute
//   S RATE SECONDS LABEL QUARTER                   from seconds
#include <cstdio>
#include <string>

#include "midi/midi_time_code.h"
#include "zell/format.h"

namespace {

constexpr int kWholeHour = 10;

void PrintLabels(FrameRate rate) {
    const MidiTimeCode midnight(0, 0, 0, 0, rate);
    MidiTimeCode code = midnight;
    int frame = 0;
    do {
        const FullFrameMessage full = code.GetFullFrameMessage();
        if (full.GetHours() == kWholeHour || (full.GetSeconds() == 59 && full.GetFrames() > 21) ||
            (full.GetSeconds() == 0 && full.GetFrames() < 4)) {
            std::string line = zell::format("L %d %d %s ", rate, frame, code.GetAsString());
            for (std::size_t i = 0; i < FullFrameMessage::kSize; ++i)
                line += zell::format("%02x", full.Get()[i]);
            line += ' ';
            for (unsigned char index = 0; index < 8; ++index) {
                const QuarterFrameMessage piece = code.GetQuarterFrameMessage(index);
                line += zell::format("%02x%02x", piece.Get()[0], piece.Get()[1]);
            }
            std::puts(line.c_str());
        }
        ++code;
        ++frame;
    } while (code != midnight);
}

void PrintSeconds(FrameRate rate, double seconds) {
    const MidiTimeCode code(seconds, rate);
    std::printf("S %d %.17g %s %d\n", static_cast<int>(rate), seconds, code.GetAsString().c_str(),
                code.GetQuarterFrameIndex());
}

}  // namespace

int main() {
    for (const FrameRate rate : {FrameRate::k24, FrameRate::k25, FrameRate::k2997Drop, FrameRate::k30}) {
        PrintLabels(rate);
        // Across the day, where no two numbers meet, and a song's clocks at 120 beats a minute.
        for (int i = 0; i < 20000; ++i)
            PrintSeconds(rate, i * 4.3196601125);
        for (int clock = 0; clock < 40000; ++clock)
            PrintSeconds(rate, 3540.0 + clock * 20 * (60.0 / (120.0 * 480)));
    }
}
