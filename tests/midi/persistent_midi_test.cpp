#include "midi/persistent_midi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "zell/cout_buffer.h"

using vemo_midi::VoiceEvent;

namespace {

using Range = std::pair<unsigned char, unsigned char>;
using Events = PersistentMIDI::Events;

constexpr Range kEveryNote{0, 127};
constexpr Range kNoNote{255, 255};

std::vector<int> Numbers(const Events& events) {
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
VoiceEvent Control(unsigned char controller, unsigned char value) {
    return VoiceEvent(30, 0xB0, 3, controller, value);
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

TEST(PersistentMIDI, KeepsTheLastControllerProgramAndBend) {
    PersistentMIDI state(kEveryNote);
    EXPECT_FALSE(state.HasProgramChange());
    EXPECT_FALSE(state.GetHasPitchBend());
    for (const auto& event : {Control(7, 90), Control(64, 127), Control(7, 80), VoiceEvent(40, 0xC0, 3, 5, 0),
                              VoiceEvent(41, 0xC0, 3, 6, 0), VoiceEvent(42, 0xE0, 3, 1, 65)})
        state.AddEvent(event);
    EXPECT_EQ(state.GetCCs(), (Events{{7, Control(7, 80)}, {64, Control(64, 127)}}));
    EXPECT_TRUE(state.HasProgramChange());
    EXPECT_EQ(state.GetProgramChange(), VoiceEvent(41, 0xC3, 3, 6, 0));
    EXPECT_TRUE(state.GetHasPitchBend());
    EXPECT_EQ(state.GetPitchBend(), VoiceEvent(42, 0xE3, 3, 1, 65));
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

TEST(PersistentMIDI, RecordsAsWrittenAndReturnsTheEventTransposedWhereItIsANoteInRange) {
    const struct {
        VoiceEvent event, sent;
    } cases[] = {
        {On(60), On(62)},
        {Off(60), Off(62)},
        {On(73), On(73)},
        {Off(73), Off(73)},
        {Control(60, 1), Control(60, 1)},
        {VoiceEvent(0, 0xA0, 3, 60, 9), VoiceEvent(0, 0xA0, 3, 60, 9)},
        {VoiceEvent(0, 0xC0, 3, 60, 0), VoiceEvent(0, 0xC0, 3, 60, 0)},
        {VoiceEvent(0, 0xE0, 3, 60, 9), VoiceEvent(0, 0xE0, 3, 60, 9)},
    };
    for (const auto& row : cases) {
        PersistentMIDI state({48, 72});
        EXPECT_EQ(state.AddEvent(row.event, 2), row.sent) << int{row.event.message.status};
    }
    PersistentMIDI state({48, 72});
    state.AddEvent(On(60), 2);
    EXPECT_EQ(state.GetNotes(), (Events{{60, On(60)}}));
}

TEST(PersistentMIDI, TheInverseEndsWhatIsHeldOnItsChannelButForTheExclusions) {
    PersistentMIDI state({48, 72});
    for (const auto& event : {On(60), On(61), On(30), On(31), Control(64, 127), Control(1, 5)})
        state.AddEvent(event);
    EXPECT_EQ(state.GetInverseNotes({}), (Events{{60, {10, 0x83, 0, 60, 100}}, {61, {10, 0x83, 0, 61, 100}}}));
    EXPECT_EQ(state.GetInverseSwitches({{30, On(30)}}), (Events{{31, {10, 0x83, 0, 31, 100}}}));
    EXPECT_EQ(state.GetInverseCCs({{1, Control(1, 0)}}), (Events{{64, {30, 0xB3, 0, 64, 0}}}));
}

TEST(PersistentMIDI, FilteringTakesNotesAndSwitchesOutAndLeavesControllers) {
    PersistentMIDI state({48, 72});
    for (const auto& event : {On(60), On(61), On(30), Control(64, 127)})
        state.AddEvent(event);
    EXPECT_TRUE(state.FilterNotes({{62, Off(62)}, {30, Off(30)}}).empty());
    EXPECT_EQ(Numbers(state.GetNotes()), (std::vector{60, 61}));

    EXPECT_EQ(state.FilterNotes({{60, Off(60)}, {62, Off(62)}}), (Events{{60, Off(60)}}));
    EXPECT_EQ(Numbers(state.GetNotes()), (std::vector{61}));
    EXPECT_EQ(state.FilterSwitches({{30, Off(30)}, {61, Off(61)}}), (Events{{30, Off(30)}}));
    EXPECT_TRUE(state.GetSwitches().empty());
    EXPECT_EQ(state.FilterCCs({{64, Control(64, 0)}, {1, Control(1, 0)}}), (Events{{64, Control(64, 0)}}));
    EXPECT_EQ(Numbers(state.GetCCs()), (std::vector{64}));
}

TEST(PersistentMIDI, PrintsNotesSwitchesAndControllersWithNumbersForBytes) {
    std::string printed;
    auto console = zell::CoutBuffer::SetSink([&](const std::string& text) { printed += text; });
    PersistentMIDI state({48, 72});
    for (const auto& event : {On(60), On(36), Control(7, 65), Control(119, 66)})
        state.AddEvent(event);
    state.PrintYourself();
    zell::CoutBuffer::SetSink(std::move(console));
    EXPECT_EQ(printed,
              "PersistentMidi\n"
              "  Notes:\n"
              "    C4      time=10 status=0x93 data1=60 data2=100\n"
              "  Switches:\n"
              "    C2      time=10 status=0x93 data1=36 data2=100\n"
              "  CCs:\n"
              "    7       time=30 status=0xB3 data1=7 data2=65\n"
              "    119     time=30 status=0xB3 data1=119 data2=66\n"
              "\n");
}

}  // namespace
