#include "midi/win32/standard_midi_clock_impl.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/midi/arrivals.h"
#include "tests/midi/console_capture.h"
#include "tests/midi/exception_capture.h"
#include "win32_layer/layer.h"
#include "zell/log_filter.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using win32_layer::Fault;
using win32_layer::Layer;

namespace {

constexpr auto kLong = 20s;  // for what should take milliseconds

class ClockTimers : public testing::Test {
protected:
    ClockTimers() { Layer::Instance().Reset(); }
    ~ClockTimers() override {
        zell::SetLogListener({});
        EXPECT_TRUE(Layer::Instance().WaitForTimers(kLong));
        const auto counters = Layer::Instance().GetCounters();
        EXPECT_EQ(counters.timerPeriods, 0);
        EXPECT_EQ(counters.outstandingTimers, 0);
        Layer::Instance().Reset();
    }

    static bool WaitForPeriods(int periods) {
        return WaitUntil([&] { return Layer::Instance().GetCounters().timerPeriods == periods; });
    }
    /// Armed at tick 0 and started; one clock is a click where that is asked for.
    static void Run(StandardMidiClock& clock, double clockTime, int clocksPerClick = 24) {
        clock.ArmPlayback(10, clocksPerClick, clockTime, 0, 0);
        clock.ContinuousMode();
    }
    /// What was logged since the last call, once there is something.
    std::vector<std::string> WaitForLogged() {
        std::vector<std::string> logged;
        WaitUntil([&] { return !(logged = log_.Take()).empty(); });
        return logged;
    }

    ExceptionCapture log_;
    Arrivals<double> clocks_;  // the clocks that came
};

TEST_F(ClockTimers, RunsFromStartToDisarmWithTheTimerPeriodHeldMeanwhile) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Callback());
    clock.ArmPlayback(10, 24, 0.004, 480, 0);
    EXPECT_EQ(Layer::Instance().GetCounters().timerPeriods, 0);
    clock.ContinuousMode();
    ASSERT_TRUE(clocks_.WaitFor(100));
    EXPECT_EQ(Layer::Instance().GetCounters().timerPeriods, 1);
    clock.DisarmPlayback();
    ASSERT_TRUE(WaitForPeriods(0));
    const auto clocks = clocks_.Get();
    // Generous: how close the mean comes is for an idle machine to show.
    EXPECT_GT(clocks[99].time - clocks[0].time, 99 * 1ms);
    EXPECT_LT(clocks[99].time - clocks[0].time, 99 * 40ms);
    EXPECT_NE(clocks[0].thread, clocks[1].thread);
    EXPECT_EQ(clocks[1].thread, clocks[99].thread);
    const int seen = static_cast<int>(clocks.size());
    EXPECT_EQ(clocks_.Count(), seen);  // nothing comes after the end

    clock.ArmPlayback(10, 24, 0.002, 480, 0);
    clock.SetCaesura(480 + 200, 0.002, 24);
    clock.ContinuousMode();
    EXPECT_TRUE(clocks_.WaitFor(seen + 20));
    EXPECT_TRUE(WaitForPeriods(0));
    EXPECT_EQ(clocks_.Count(), seen + 20);
}

TEST_F(ClockTimers, AStartWhileDisarmedEndsAtOnce) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Callback());
    clock.ContinuousMode();
    clock.ContinuousMode();
    Run(clock, 0.002);
    EXPECT_TRUE(clocks_.WaitFor(3));
    clock.DisarmPlayback();
    EXPECT_TRUE(WaitForPeriods(0));
}

TEST_F(ClockTimers, AClockThatTookTooLongIsFollowedAtOnce) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback([&, count = clocks_.Callback()](double beatsPerMinute) {
        if (clocks_.Count() == 2)
            std::this_thread::sleep_for(250ms);
        count(beatsPerMinute);
    });
    Run(clock, 0.2);
    ASSERT_TRUE(clocks_.WaitFor(4));
    clock.DisarmPlayback();
    const auto clocks = clocks_.Get();
    EXPECT_GE(clocks[1].time - clocks[0].time, 190ms);
    EXPECT_GE(clocks[2].time - clocks[1].time, 250ms);
    EXPECT_LT(clocks[3].time - clocks[2].time, 150ms);
}

TEST_F(ClockTimers, ATempoChangeIsNotTakenForLateness) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Callback());
    clock.ArmPlayback(10, 24, 0.4, 0, 0);
    clock.SetClockTime(0.02, 10);
    clock.ContinuousMode();
    ASSERT_TRUE(clocks_.WaitFor(3));
    clock.DisarmPlayback();
    const auto clocks = clocks_.Get();
    EXPECT_LT(clocks[1].time - clocks[0].time, 300ms);
    EXPECT_LT(clocks[2].time - clocks[1].time, 300ms);
}

TEST_F(ClockTimers, StartsNeverMakeTwoChains) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Callback());
    Run(clock, 0.5);
    ASSERT_TRUE(WaitUntil([] { return Layer::Instance().GetCounters().outstandingTimers == 1; }));
    // That timer is still to come while the next chains run.
    const auto due = std::chrono::steady_clock::now() + 500ms;
    for (int i = 0; i < 30; ++i) {
        clock.DisarmPlayback();
        Run(clock, 0.003);
        if (i % 3 == 0)
            clock.ContinuousMode();
        const int seen = clocks_.Count();
        if (i % 5 == 0) {
            ASSERT_TRUE(clocks_.WaitFor(seen + 2));
        }
    }
    std::this_thread::sleep_until(due);
    ASSERT_TRUE(WaitForPeriods(1));
    const int seen = clocks_.Count();
    ASSERT_TRUE(clocks_.WaitFor(seen + 20));
    EXPECT_EQ(Layer::Instance().GetCounters().timerPeriods, 1);
    clock.DisarmPlayback();
}

TEST_F(ClockTimers, ARequestThatTheClockThreadFindsBesideAnotherMakesNoSecondChain) {
    // Disarmed before it ends: a clock of a derived class must not run any more then.
    struct Clock : StandardMidiClockImpl {
        using StandardMidiClockImpl::StartClock;
    };
    Clock clock;
    clock.SetMidiClockCallback(clocks_.Callback());
    Run(clock, 0.003);
    ASSERT_TRUE(clocks_.WaitFor(3));
    clock.StartClock();  // as one that was counted before the start was taken up
    ASSERT_TRUE(WaitUntil([&] {
        const auto clocks = clocks_.Get();
        return std::ranges::count(clocks, clocks[0].thread, &Arrivals<double>::Arrival::thread) == 2;
    }));
    EXPECT_TRUE(WaitForPeriods(1));
    clock.DisarmPlayback();
}

TEST_F(ClockTimers, AFailureOnTheTimerThreadEndsTheChainAndAnotherStartGoesOn) {
    const std::string source = "midi/Sources/win32/standard_midi_clock_impl: ";
    StandardMidiClockImpl clock;
    clock.ArmPlayback(10, 24, 0.002, 0, 0);
    clock.SetMidiClockCallback([&, count = clocks_.Callback()](double beatsPerMinute) {
        count(beatsPerMinute);
        if (clocks_.Count() == 3)
            throw std::runtime_error("the host is tired");
        if (clocks_.Count() == 7)
            throw 7;
    });
    clock.ContinuousMode();
    EXPECT_THAT(WaitForLogged(), ElementsAre(source + "the host is tired"));
    EXPECT_TRUE(WaitForPeriods(0));
    EXPECT_EQ(clocks_.Count(), 3);
    clock.ContinuousMode();
    EXPECT_THAT(WaitForLogged(), ElementsAre(source + "Unknown exception."));
    EXPECT_TRUE(WaitForPeriods(0));
    clock.ContinuousMode();
    EXPECT_TRUE(clocks_.WaitFor(12));
}

TEST_F(ClockTimers, ARefusedTimerIsReportedAndEndsTheChain) {
    ConsoleCapture console;
    std::mutex mutex;
    std::vector<std::string> attempts;
    zell::SetLogListener([&](const zell::LogEntry& entry) {
        std::lock_guard lock(mutex);
        attempts.push_back((entry.kind == zell::LogAttempt ? "attempt " : "success ") + std::string(entry.description));
    });
    {
        StandardMidiClockImpl clock;
        clock.ArmPlayback(10, 24, 0.002, 0, 0);
        clock.SetMidiClockCallback([&, count = clocks_.Callback()](double beatsPerMinute) {
            count(beatsPerMinute);
            if (clocks_.Count() == 2)
                Layer::Instance().Fail(Fault::kTimer, 1, 1);
        });
        clock.ContinuousMode();
        const auto logged = WaitForLogged();
        ASSERT_EQ(logged.size(), 1u);
        EXPECT_TRUE(WaitForPeriods(0));
        const std::string message = logged[0].substr(logged[0].find(": ") + 2);
        EXPECT_THAT(message, StartsWith("midi/Sources/win32/standard_midi_clock_impl line "));
        EXPECT_THAT(message, HasSubstr("timeSetEvent"));
        EXPECT_EQ(console.Take(), "[ERROR] " + message + "\n");
        clock.ContinuousMode();
        EXPECT_TRUE(clocks_.WaitFor(4));
        clock.DisarmPlayback();
    }
    EXPECT_THAT(std::vector<std::string>(attempts.begin(), attempts.begin() + 5),
                ElementsAre("attempt timeSetEvent", "success timeSetEvent", "attempt timeSetEvent",
                            "attempt timeSetEvent", "success timeSetEvent"));
}

TEST_F(ClockTimers, ARefusedFirstTimerEndsTheClockThreadAndNothingHangs) {
    ConsoleCapture console;
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Callback());
    clock.ArmPlayback(10, 24, 0.002, 0, 0);
    Layer::Instance().Fail(Fault::kTimer, 1, 1);
    clock.ContinuousMode();
    EXPECT_EQ(WaitForLogged().size(), 1u);
    EXPECT_TRUE(WaitForPeriods(0));
    EXPECT_THAT(console.Take(), StartsWith("[ERROR] "));
    clock.ContinuousMode();
    clock.DisarmPlayback();
    EXPECT_EQ(clocks_.Count(), 1);
}

TEST_F(ClockTimers, AClockMayBeDestroyedAtAnyMoment) {
    for (int round = 0; round < 1000; ++round) {
        const int seen = clocks_.Count();
        auto clock = std::make_unique<StandardMidiClockImpl>();
        clock->SetMidiClockCallback(clocks_.Callback());
        clock->ArmPlayback(10, 24, 0.001, 0, 0);
        if (round % 7 != 0)
            clock->ContinuousMode();
        if (round % 7 > 2) {
            ASSERT_TRUE(clocks_.WaitFor(seen + round % 7 - 2)) << round;
        }
        for (int i = 0; i < round % 64; ++i)
            std::this_thread::yield();
        if (round % 3 == 0)
            clock->DisarmPlayback();
        clock.reset();
        // Whatever was on its way has come back before the clock is gone.
        ASSERT_EQ(Layer::Instance().GetCounters().timerPeriods, 0) << round;
    }
}

TEST_F(ClockTimers, HostsThatStopAndStartWhileItRunsAlwaysGetItsFirstClock) {
    StandardMidiClockImpl clock;
    std::atomic<double> wanted{0};
    Count came;
    clock.SetMidiClockCallback([&](double beatsPerMinute) {
        if (wanted.compare_exchange_strong(beatsPerMinute, 0))
            came.Add();
    });
    for (int round = 0; round < 500; ++round) {
        // One clock per click: the beats per minute tell the rounds apart.
        const double clockTime = 0.001 + 0.000001 * round;
        clock.DisarmPlayback();
        wanted = 60.0 / clockTime;
        Run(clock, clockTime, 1);
        ASSERT_TRUE(came.WaitFor(round + 1)) << round;
    }
}

TEST_F(ClockTimers, AStartOfAnArmingBeforeDoesNotStartTheNextOne) {
    StandardMidiClockImpl clock;
    std::atomic<int> early{0};
    std::atomic<double> unstarted{0};
    clock.SetMidiClockCallback([&](double beatsPerMinute) { early += beatsPerMinute == unstarted; });
    for (int round = 0; round < 300; ++round) {
        const double clockTime = 0.01 + 0.00001 * round;
        Run(clock, 0.009, 1);
        clock.DisarmPlayback();
        unstarted = 60.0 / clockTime;
        clock.ArmPlayback(10, 1, clockTime, 0, 0);
        for (int turn = 0; turn < 20; ++turn)
            std::this_thread::yield();
        ASSERT_EQ(early, 0) << round;
        clock.DisarmPlayback();
    }
}

}  // namespace
