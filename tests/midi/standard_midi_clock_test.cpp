#include "midi/standard_midi_clock.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/midi/at_once.h"
#include "tests/midi/console_capture.h"
#include "tests/midi/message_of.h"

using testing::ElementsAre;
using testing::StartsWith;

namespace {

/// A clock that the test drives by hand, as an offline host does.
class ManualClock : public StandardMidiClock {
public:
    ManualClock() {
        SetMidiClockCallback([this](double beatsPerMinute) { called.push_back(beatsPerMinute); });
    }
    using StandardMidiClock::AdvanceClock;
    using StandardMidiClock::BeginRun;
    using StandardMidiClock::clockState_;
    using StandardMidiClock::GetRun;

    /// Ticks per clock 10, clocks per click 24, clock time 0.02, clock number 0.
    void ArmAt(unsigned int tickIndex) { ArmPlayback(10, 24, 0.02, tickIndex, 0); }
    unsigned int Tick() const { return clockState_.GetTickIndex(); }

    std::vector<double> called;
    std::vector<double> timers;
    int starts = 0;

protected:
    void SetClockTimer(double clockTime) override { timers.push_back(clockTime); }
    void StartClock() override { ++starts; }
};

TEST(ClockState, NoValueThatAHostSetsBreaksTheArithmetic) {
    struct Row {
        int clockNumber, clocksPerClick;
        double clockTime, beatsPerMinute;
        int nextClockNumber;
    };
    for (const Row& row : {Row{23, 24, 0.02, 125.0, 0}, Row{22, 24, 0.02, 125.0, 23}, Row{30, 24, 0.02, 125.0, 0},
                           Row{0, 0, 0.02, 0.0, 0}, Row{0, 24, 0.0, 0.0, 1}, Row{2147483647, 24, 0.02, 125.0, 0},
                           Row{-1, -2147483647 - 1, 0.02, 60.0 / (-2147483648.0 * 0.02), 0}}) {
        ClockState state(0, row.clockNumber, 10, row.clocksPerClick, row.clockTime);
        EXPECT_DOUBLE_EQ(state.GetBeatsPerMinute(), row.beatsPerMinute) << row.clocksPerClick;
        state.AdvanceClock();
        EXPECT_EQ(state.GetClockNumber(), row.nextClockNumber) << row.clockNumber << " of " << row.clocksPerClick;
        EXPECT_EQ(state.GetTickIndex(), 10u);
    }
}

TEST(ClockState, TwoThreadsThatAssignCrosswiseBothGetDone) {
    ClockState left(1, 0, 1, 1, 1.0);
    ClockState right(2, 0, 1, 1, 1.0);
    const auto assign = [](ClockState& to, const ClockState& from) {
        for (int i = 0; i < 20'000; ++i)
            to = from;
    };
    AtOnce([&] { assign(right, left); }, [&] { assign(left, right); });
    EXPECT_EQ(left.GetTickIndex(), right.GetTickIndex());
}

TEST(StandardMidiClock, AClockCallsBackThenMovesOnAndSchedulesTheNext) {
    ManualClock clock;
    EXPECT_FALSE(clock.AdvanceClock());
    EXPECT_TRUE(clock.called.empty());

    clock.ArmAt(480);
    EXPECT_TRUE(clock.AdvanceClock());
    EXPECT_THAT(clock.called, ElementsAre(125.0));
    EXPECT_THAT(clock.timers, ElementsAre(0.02));
    EXPECT_EQ(clock.Tick(), 490u);
    EXPECT_EQ(clock.clockState_.GetClockNumber(), 1);
    for (int i = 1; i < 24; ++i)
        EXPECT_TRUE(clock.AdvanceClock());
    EXPECT_EQ(clock.clockState_.GetClockNumber(), 0);
    clock.SetTicksPerClock(20);
    clock.AdvanceClock();
    EXPECT_EQ(clock.Tick(), 740u);

    clock.DisarmPlayback();
    EXPECT_FALSE(clock.AdvanceClock());
    EXPECT_EQ(clock.called.size(), 25u);
    EXPECT_EQ(clock.Tick(), 740u);
}

TEST(StandardMidiClock, AChangeHoldsFromItsTickOnAndOnlyWhereAClockReachesIt) {
    struct Row {
        unsigned int validAt;
        std::vector<double> beatsPerMinute;  // of the clocks at 100, 110 and 120
        const char* warning;
    };
    const Row rows[] = {
        {0, {250, 250, 250}, ""},
        {110, {125, 250, 250}, ""},
        {120, {125, 125, 250}, ""},
        {115, {125, 125, 125}, ""},
        {100, {125, 125, 125}, ""},
        {99, {125, 125, 125}, "WARNING: SetClocksPerClick ignored. validAt=99, tickIndex=100\n"},
    };
    for (const Row& row : rows) {
        ConsoleCapture console;
        ManualClock clock;
        clock.ArmAt(100);
        clock.SetClocksPerClick(12, row.validAt);
        for (int i = 0; i < 3; ++i)
            clock.AdvanceClock();
        EXPECT_EQ(clock.called, row.beatsPerMinute) << row.validAt;
        EXPECT_EQ(console.Take(), row.warning) << row.validAt;
    }
}

TEST(StandardMidiClock, LateChangesChangeNothingAndSaySo) {
    ConsoleCapture console;
    ManualClock clock;
    clock.ArmAt(1000);
    clock.SetClockTime(0.5, 999);
    EXPECT_EQ(console.Take(), "WARNING: SetClockTime ignored. validAt=999, tickIndex=1000\n");
    clock.SetTickIndex(5, 1, 2, 3, 4.0, 999);
    EXPECT_EQ(console.Take(), "WARNING: SetTickIndex ignored. validAt=999, tickIndex=1000\n");
    clock.SetCaesura(1000, 0.02, 24);
    EXPECT_EQ(console.Take(), "WARNING: Ignored caesura. caesuraTickIndex = 1000, clockState_.GetTickIndex() = 1000\n");
    EXPECT_TRUE(clock.AdvanceClock());
    EXPECT_EQ(clock.Tick(), 1010u);
    EXPECT_THAT(clock.timers, ElementsAre(0.02));
    EXPECT_EQ(console.Take(), "");
}

TEST(StandardMidiClock, ChangesForOneTickApplyTogetherAndAJumpAtATickReplacesAll) {
    ManualClock clock;
    clock.ArmAt(100);
    clock.SetClockTime(0.04, 110);
    clock.SetClocksPerClick(12, 110);
    clock.SetTickIndex(5000, 7, 20, 6, 0.01, 120);
    clock.AdvanceClock();
    EXPECT_EQ(clock.timers.back(), 0.04);
    EXPECT_EQ(clock.clockState_.GetClocksPerClick(), 12);
    clock.AdvanceClock();
    EXPECT_EQ(clock.Tick(), 5000u);
    EXPECT_EQ(clock.clockState_.GetClockNumber(), 7);
    EXPECT_EQ(clock.timers.back(), 0.01);
    clock.AdvanceClock();
    EXPECT_EQ(clock.Tick(), 5020u);
    EXPECT_EQ(clock.called.back(), 1000.0);

    clock.SetTickIndex(100, 0, 10, 24, 0.02, 0);
    EXPECT_EQ(clock.Tick(), 100u);
    clock.AdvanceClock();  // what once applied at 110 is used up
    EXPECT_EQ(clock.timers.back(), 0.02);

    clock.SetClockTime(0.04, 110);
    clock.ArmAt(100);  // drops the schedule
    clock.AdvanceClock();
    EXPECT_EQ(clock.timers.back(), 0.02);
}

TEST(StandardMidiClock, ChangesWhileDisarmedWaitForTheNextArming) {
    const std::pair<std::function<void(ManualClock&)>, bool> rows[] = {
        {[](ManualClock&) {}, true},
        {[](ManualClock& clock) { clock.SetTickIndex(1, 2, 3, 4, 5.0, 0); }, false},
        {[](ManualClock& clock) { clock.DisarmPlayback(); }, false},
    };
    for (const auto& [before, kept] : rows) {
        ConsoleCapture console;
        ManualClock clock;
        clock.SetClocksPerClick(6, 0);
        clock.SetClocksPerClick(12, 0);
        clock.SetClocksPerClick(48, 90);
        clock.SetClockTime(0.04, 110);
        before(clock);
        EXPECT_EQ(console.Take(), "");
        clock.ArmAt(100);
        EXPECT_EQ(console.Take(), kept ? "WARNING: SetClocksPerClick ignored. validAt=90, tickIndex=100\n" : "");
        EXPECT_EQ(clock.clockState_.GetClocksPerClick(), kept ? 12 : 24);
        clock.AdvanceClock();
        EXPECT_EQ(clock.timers.back(), kept ? 0.04 : 0.02);

        clock.ArmAt(100);  // once is enough
        EXPECT_EQ(clock.clockState_.GetClocksPerClick(), 24);
    }
}

TEST(StandardMidiClock, PausesBeforeTheClockAtTheCaesuraAndGoesOnFromThere) {
    ManualClock clock;
    clock.ArmAt(100);
    clock.SetCaesura(120, 0.03, 24);
    EXPECT_TRUE(clock.AdvanceClock());
    EXPECT_FALSE(clock.AdvanceClock());
    EXPECT_EQ(clock.Tick(), 120u);
    EXPECT_EQ(clock.timers.size(), 1u);
    EXPECT_TRUE(clock.GetPlaybackIsArmed());

    clock.ContinuousMode();
    EXPECT_EQ(clock.starts, 1);
    EXPECT_TRUE(clock.AdvanceClock());
    EXPECT_EQ(clock.Tick(), 130u);

    clock.SetCaesura(140, 0.03, 24);
    clock.ArmAt(130);
    EXPECT_TRUE(clock.AdvanceClock());  // arming dropped the caesura
    EXPECT_EQ(clock.Tick(), 140u);
}

TEST(StandardMidiClock, AHostThatActsWhileAClockIsInFlightLosesNoClock) {
    struct Row {
        const char* name;
        std::function<void(ManualClock&)> during;
        bool goesOn;
        unsigned int tickAfter;
    };
    const Row rows[] = {
        {"nothing", [](ManualClock&) {}, true, 110},
        {"disarm", [](ManualClock& clock) { clock.DisarmPlayback(); }, true, 110},
        {"arm", [](ManualClock& clock) { clock.ArmAt(2000); }, false, 2000},
        {"start", [](ManualClock& clock) { clock.ContinuousMode(); }, false, 100},
        {"stop and start",
         [](ManualClock& clock) {
             clock.DisarmPlayback();
             clock.ArmAt(2000);
             clock.SetClockTime(0.04, 2010);
             clock.SetCaesura(2010, 0.02, 24);
             clock.ContinuousMode();
         },
         false, 2000},
    };
    for (const Row& row : rows) {
        ManualClock clock;
        clock.ArmAt(100);
        clock.ContinuousMode();
        clock.SetMidiClockCallback([&](double) { row.during(clock); });
        EXPECT_EQ(clock.AdvanceClock(), row.goesOn) << row.name;
        EXPECT_EQ(clock.Tick(), row.tickAfter) << row.name;
        EXPECT_EQ(clock.timers.size(), row.goesOn ? 1u : 0u) << row.name;
    }
}

TEST(StandardMidiClock, AClockOfAnEarlierStartDoesNotComeUnderALaterOne) {
    const std::pair<const char*, std::function<void(ManualClock&)>> rows[] = {
        {"start", [](ManualClock& clock) { clock.ContinuousMode(); }},
        {"arm", [](ManualClock& clock) { clock.ArmAt(100); }},
    };
    for (const auto& [name, later] : rows) {
        ManualClock clock;
        clock.ArmAt(100);
        clock.ContinuousMode();
        const auto run = clock.GetRun();
        EXPECT_TRUE(clock.AdvanceClock(run)) << name;
        later(clock);
        EXPECT_FALSE(clock.AdvanceClock(run)) << name;
        EXPECT_EQ(clock.called.size(), 1u) << name;
        EXPECT_TRUE(clock.AdvanceClock(clock.BeginRun())) << name;
    }
}

TEST(StandardMidiClock, WhatTheCallbackThrowsPassesAndTheClockStandsStill) {
    ManualClock clock;
    clock.ArmAt(100);
    clock.SetMidiClockCallback([](double) { throw std::runtime_error("lost"); });
    EXPECT_THROW(clock.AdvanceClock(), std::runtime_error);
    clock.SetMidiClockCallback({});
    EXPECT_THROW(clock.AdvanceClock(), std::bad_function_call);
    EXPECT_EQ(clock.Tick(), 100u);
    EXPECT_TRUE(clock.timers.empty());
    ASSERT_TRUE(clock.GetMutex().try_lock());
    clock.GetMutex().unlock();
}

TEST(StandardMidiClock, TheCallbackMayBeReplacedWhileClocksRun) {
    ManualClock clock;
    clock.ArmAt(0);
    std::atomic<int> calls{0};
    const auto count = [&calls, guard = std::vector<int>(100, 1)](double) { calls += guard.back(); };
    clock.SetMidiClockCallback(count);
    const auto repeat = [](const std::function<void()>& call) {
        for (int i = 0; i < 2000; ++i)
            call();
    };
    AtOnce([&] { repeat([&] { clock.AdvanceClock(); }); }, [&] { repeat([&] { clock.SetMidiClockCallback(count); }); });
    EXPECT_EQ(calls, 2000);
}

TEST(StandardMidiClock, AfterADisarmAndAWaitNoClockIsWithItsCallback) {
    for (int round = 0; round < 200; ++round) {
        ManualClock clock;
        clock.ArmAt(0);
        std::atomic<bool> hostGoesOn{false};
        std::atomic<int> late{0};
        clock.SetMidiClockCallback([&](double) {
            for (int i = 0; i < 100; ++i)
                late += hostGoesOn;
        });
        const auto host = [&] {
            clock.DisarmPlayback();
            clock.WaitForClocksInFlight();
            hostGoesOn = true;
        };
        AtOnce(host, [&] {
            for (int i = 0; i < 100'000 && clock.AdvanceClock(); ++i) {
            }
        });
        ASSERT_EQ(late, 0) << round;
    }
}

TEST(StandardMidiClock, ACaesuraIsTakenOrRefusedButNeverLeftBehindARunningClock) {
    for (int round = 0; round < 200; ++round) {
        ConsoleCapture console;
        ManualClock clock;
        clock.ArmAt(0);
        int clocks = 0;
        const auto run = [&] {
            while (clocks < 200 && clock.AdvanceClock())
                ++clocks;
        };
        AtOnce(run, [&] { clock.SetCaesura(200, 0.02, 24); });
        if (clocks < 200)
            EXPECT_EQ(clock.Tick(), 200u);
        else  // not paused: refused, or set after the last clock of this test came
            EXPECT_THAT(console.Take(), StartsWith("WARNING: Ignored caesura. caesuraTickIndex = 200, ")) << round;
    }
}

TEST(StandardMidiClock, TheConductedModeIsRefused) {
    ManualClock clock;
    EXPECT_EQ(MessageOf<std::logic_error>([&] { clock.ConductBeat(); }), "Not implemented");
    EXPECT_EQ(MessageOf<std::logic_error>([&] { clock.SetConductorClickTimerCallback(nullptr, nullptr); }),
              "Not implemented.");
    EXPECT_EQ(MessageOf<std::logic_error>([&] { clock.SetDownbeatTimerCallback(nullptr, nullptr); }),
              "Not implemented.");
}

}  // namespace
