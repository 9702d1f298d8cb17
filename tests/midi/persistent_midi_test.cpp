#include "midi/persistent_midi.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using vemo_midi::VoiceEvent;

namespace {

using Range = std::pair<unsigned char, unsigned char>;

constexpr Range kEveryNote{0, 127};
constexpr Range kNoNote{255, 255};

std::vector<int> Numbers(const PersistentMIDI::Events& events) {
    std::vector<int> numbers;
    for (const auto& [number, event] : events)
        numbers.push_back(number);
    return numbers;
}

VoiceEvent On(unsigned char note) {
    return VoiceEvent(10, 0x90, 3, note, 100);
}
VoiceEvent Off(unsigned char note) {
    return VoiceEvent(20, 0x80, 3, note, 0);
}

TEST(PersistentMIDI, TakesNotesInsideItsRangeForNotesAndTheOthersForSwitches) {
    const struct {
        Range range;
        std::vector<VoiceEvent> events;
        std::vector<int> notes, switches;
    } cases[] = {
        {{48, 72}, {On(47), On(48), On(72), On(73)}, {48, 72}, {47, 73}},
        {kEveryNote, {On(0), On(127)}, {0, 127}, {}},
        {kNoNote, {On(0), On(127)}, {}, {0, 127}},
        {{48, 72}, {On(60), On(30), Off(60), Off(30)}, {}, {}},
        {{48, 72}, {Off(60), Off(30)}, {}, {}},
        {{48, 72}, {On(60), VoiceEvent(11, 0x90, 3, 60, 0)}, {60}, {}},
        {{48, 72}, {VoiceEvent(0, 0xA0, 3, 60, 1), VoiceEvent(0, 0xD0, 3, 60, 0)}, {}, {}},
    };
    for (const auto& row : cases) {
        PersistentMIDI state(row.range);
        for (const auto& event : row.events)
            state.AddEvent(event);
        const auto trace = testing::PrintToString(row.notes) + testing::PrintToString(row.switches);
        EXPECT_EQ(Numbers(state.GetNotes()), row.notes) << trace;
        EXPECT_EQ(Numbers(state.GetSwitches()), row.switches) << trace;
    }
}

TEST(PersistentMIDI, ANoteOffEndsTheNoteAlsoWhereTheRangeWasSetInBetween) {
    PersistentMIDI state;
    state.AddEvent(On(60));
    state.SetRange(kEveryNote);
    state.AddEvent(Off(60));
    EXPECT_TRUE(state.GetSwitches().empty());
}

TEST(PersistentMIDI, TransposesByFoldingOneOctaveAndMoreOnlyToStayANote) {
    const struct {
        Range range;
        int note, semitones, transposed;
    } cases[] = {
        {kEveryNote, 60, 7, 67},    {kEveryNote, 125, 5, 118}, {kEveryNote, 3, -5, 10},    {kEveryNote, 126, 1, 127},
        {kEveryNote, 127, 1, 116},  {kEveryNote, 1, -1, 0},    {kEveryNote, 0, -1, 11},    {{48, 72}, 70, 2, 72},
        {{48, 72}, 70, 3, 61},      {{48, 72}, 50, -2, 48},    {{48, 72}, 50, -3, 59},     {{60, 62}, 61, 7, 56},
        {{60, 62}, 61, -7, 66},     {{48, 72}, 30, 0, 30},     {{48, 72}, 47, 2, 49},      {kNoNote, 60, 7, 60},
        {kEveryNote, 120, 24, 120}, {kEveryNote, 5, -24, 5},   {kEveryNote, 60, 127, 127}, {kEveryNote, 60, -128, 4},
        {{48, 72}, 70, 127, 125},
    };
    for (const auto& row : cases) {
        const PersistentMIDI state(row.range);
        EXPECT_EQ(
            state.GetTransposedNote(static_cast<unsigned char>(row.note), static_cast<signed char>(row.semitones)),
            row.transposed)
            << row.note << " by " << row.semitones << " in " << int{row.range.first};
    }
}

}  // namespace
