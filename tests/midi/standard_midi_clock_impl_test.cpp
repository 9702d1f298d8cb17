#include "midi/win32/standard_midi_clock_impl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/midi/console_capture.h"
#include "vemo_core/exception_log.h"
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

/// The clocks that came, with their times and threads.
class Clocks {
public:
    std::function<void(double)> Counter() {
        return [this](double) {
            std::lock_guard lock(mutex_);
            times_.push_back(std::chrono::steady_clock::now());
            threads_.push_back(std::this_thread::get_id());
            arrived_.notify_all();
        };
    }
    bool WaitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, kLong, [&] { return times_.size() >= count; });
    }
    std::size_t Count() {
        std::lock_guard lock(mutex_);
        return times_.size();
    }
    std::vector<std::chrono::steady_clock::time_point> Times() {
        std::lock_guard lock(mutex_);
        return times_;
    }
    std::vector<std::thread::id> Threads() {
        std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::chrono::steady_clock::time_point> times_;
    std::vector<std::thread::id> threads_;
};

class ClockTimers : public testing::Test {
protected:
    ClockTimers() {
        Layer::Instance().Reset();
        logBefore_ = SetExceptionLogSink([this](const LoggedException& exception) {
            std::lock_guard lock(logMutex_);
            logged_.push_back(exception.sourcePath + ": " + exception.message);
            loggedMore_.notify_all();
        });
    }
    ~ClockTimers() override {
        zell::SetLogListener({});
        SetExceptionLogSink(logBefore_);
        EXPECT_TRUE(Layer::Instance().WaitForTimers(kLong));
        const auto counters = Layer::Instance().GetCounters();
        EXPECT_EQ(counters.timerPeriods, 0);
        EXPECT_EQ(counters.outstandingTimers, 0);
        Layer::Instance().Reset();
    }

    static bool WaitUntil(const std::function<bool(const win32_layer::Counters&)>& isTrue) {
        const auto until = std::chrono::steady_clock::now() + kLong;
        while (!isTrue(Layer::Instance().GetCounters())) {
            if (std::chrono::steady_clock::now() > until)
                return false;
            std::this_thread::yield();
        }
        return true;
    }
    static bool WaitForPeriods(int periods) {
        return WaitUntil([&](const auto& counters) { return counters.timerPeriods == periods; });
    }
    std::vector<std::string> WaitForLogged(std::size_t count) {
        std::unique_lock lock(logMutex_);
        loggedMore_.wait_for(lock, kLong, [&] { return logged_.size() >= count; });
        return logged_;
    }

    Clocks clocks_;

private:
    std::mutex logMutex_;
    std::condition_variable loggedMore_;
    std::vector<std::string> logged_;
    ExceptionLogSink logBefore_;
};

TEST_F(ClockTimers, RunsFromStartToDisarmWithTheTimerPeriodHeldMeanwhile) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Counter());
    clock.ArmPlayback(10, 24, 0.004, 480, 0);
    EXPECT_EQ(Layer::Instance().GetCounters().timerPeriods, 0);
    clock.ContinuousMode();
    ASSERT_TRUE(clocks_.WaitFor(100));
    EXPECT_EQ(Layer::Instance().GetCounters().timerPeriods, 1);
    clock.DisarmPlayback();
    ASSERT_TRUE(WaitForPeriods(0));
    const auto times = clocks_.Times();
    // Generous: how close the mean comes is for an idle machine to show.
    EXPECT_GT(times[99] - times[0], 99 * 1ms);
    EXPECT_LT(times[99] - times[0], 99 * 40ms);
    const auto threads = clocks_.Threads();
    EXPECT_NE(threads[0], threads[1]);
    EXPECT_EQ(threads[1], threads[99]);
    EXPECT_EQ(clocks_.Count(), times.size());  // nothing comes after the end

    clock.ArmPlayback(10, 24, 0.002, 480, 0);
    clock.SetCaesura(480 + 200, 0.002, 24);
    clock.ContinuousMode();
    EXPECT_TRUE(clocks_.WaitFor(times.size() + 20));
    EXPECT_TRUE(WaitForPeriods(0));
    EXPECT_EQ(clocks_.Count(), times.size() + 20);
}

TEST_F(ClockTimers, AStartWhileDisarmedEndsAtOnce) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Counter());
    clock.ContinuousMode();
    clock.ContinuousMode();
    clock.ArmPlayback(10, 24, 0.002, 0, 0);
    clock.ContinuousMode();
    EXPECT_TRUE(clocks_.WaitFor(3));
    clock.DisarmPlayback();
    EXPECT_TRUE(WaitForPeriods(0));
}

TEST_F(ClockTimers, AClockThatTookTooLongIsFollowedAtOnce) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback([&, count = clocks_.Counter()](double beatsPerMinute) {
        if (clocks_.Count() == 2)
            std::this_thread::sleep_for(250ms);
        count(beatsPerMinute);
    });
    clock.ArmPlayback(10, 24, 0.2, 0, 0);
    clock.ContinuousMode();
    ASSERT_TRUE(clocks_.WaitFor(4));
    clock.DisarmPlayback();
    const auto times = clocks_.Times();
    EXPECT_GE(times[1] - times[0], 190ms);
    EXPECT_GE(times[2] - times[1], 250ms);
    EXPECT_LT(times[3] - times[2], 150ms);
}

TEST_F(ClockTimers, ATempoChangeIsNotTakenForLateness) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Counter());
    clock.ArmPlayback(10, 24, 0.4, 0, 0);
    clock.SetClockTime(0.02, 10);
    clock.ContinuousMode();
    ASSERT_TRUE(clocks_.WaitFor(3));
    clock.DisarmPlayback();
    const auto times = clocks_.Times();
    EXPECT_LT(times[1] - times[0], 300ms);
    EXPECT_LT(times[2] - times[1], 300ms);
}

TEST_F(ClockTimers, StartsNeverMakeTwoChains) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Counter());
    clock.ArmPlayback(10, 24, 0.5, 0, 0);
    clock.ContinuousMode();
    ASSERT_TRUE(WaitUntil([](const auto& counters) { return counters.outstandingTimers == 1; }));
    // That timer is still to come while the next chains run.
    const auto due = std::chrono::steady_clock::now() + 500ms;
    for (int i = 0; i < 30; ++i) {
        clock.DisarmPlayback();
        clock.ArmPlayback(10, 24, 0.003, 0, 0);
        clock.ContinuousMode();
        if (i % 3 == 0)
            clock.ContinuousMode();
        const std::size_t seen = clocks_.Count();
        if (i % 5 == 0) {
            ASSERT_TRUE(clocks_.WaitFor(seen + 2));
        }
    }
    ASSERT_TRUE(WaitUntil(
        [&](const auto& counters) { return std::chrono::steady_clock::now() > due && counters.timerPeriods == 1; }));
    const std::size_t seen = clocks_.Count();
    ASSERT_TRUE(clocks_.WaitFor(seen + 20));
    EXPECT_EQ(Layer::Instance().GetCounters().timerPeriods, 1);
    clock.DisarmPlayback();
}

TEST_F(ClockTimers, ARequestThatTheClockThreadFindsBesideAnotherMakesNoSecondChain) {
    struct Clock : StandardMidiClockImpl {
        using StandardMidiClockImpl::StartClock;
    };
    Clock clock;
    clock.SetMidiClockCallback(clocks_.Counter());
    clock.ArmPlayback(10, 24, 0.003, 0, 0);
    clock.ContinuousMode();
    ASSERT_TRUE(clocks_.WaitFor(3));
    clock.StartClock();  // as one that was counted before the start was taken up
    ASSERT_TRUE(WaitUntil([&](const auto&) {
        const auto threads = clocks_.Threads();
        return std::count(threads.begin(), threads.end(), threads[0]) == 2;
    }));
    EXPECT_TRUE(WaitForPeriods(1));
    clock.DisarmPlayback();
}

TEST_F(ClockTimers, AnArmingEndsWhatRunsUntilTheClockIsStarted) {
    StandardMidiClockImpl clock;
    clock.SetMidiClockCallback(clocks_.Counter());
    clock.ArmPlayback(10, 24, 0.003, 0, 0);
    clock.ContinuousMode();
    ASSERT_TRUE(clocks_.WaitFor(5));
    clock.DisarmPlayback();
    clock.WaitForClocksInFlight();
    const std::size_t seen = clocks_.Count();
    clock.ArmPlayback(10, 24, 0.003, 5000, 0);
    EXPECT_TRUE(WaitForPeriods(0));
    EXPECT_EQ(clocks_.Count(), seen);
    EXPECT_TRUE(clock.GetPlaybackIsArmed());
    clock.ContinuousMode();
    EXPECT_TRUE(clocks_.WaitFor(seen + 3));
}

TEST_F(ClockTimers, AFailureOnTheTimerThreadEndsTheChainAndAnotherStartGoesOn) {
    const std::string source = "midi/Sources/win32/standard_midi_clock_impl: ";
    StandardMidiClockImpl clock;
    clock.ArmPlayback(10, 24, 0.002, 0, 0);
    clock.SetMidiClockCallback([&, count = clocks_.Counter()](double beatsPerMinute) {
        count(beatsPerMinute);
        if (clocks_.Count() == 3)
            throw std::runtime_error("the host is tired");
        if (clocks_.Count() == 7)
            throw 7;
    });
    clock.ContinuousMode();
    EXPECT_THAT(WaitForLogged(1), ElementsAre(source + "the host is tired"));
    EXPECT_TRUE(WaitForPeriods(0));
    EXPECT_EQ(clocks_.Count(), 3u);
    clock.ContinuousMode();
    EXPECT_THAT(WaitForLogged(2), ElementsAre(source + "the host is tired", source + "Unknown exception."));
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
        clock.SetMidiClockCallback([&, count = clocks_.Counter()](double beatsPerMinute) {
            count(beatsPerMinute);
            if (clocks_.Count() == 2)
                Layer::Instance().Fail(Fault::kTimer, 1, 1);
        });
        clock.ContinuousMode();
        ASSERT_EQ(WaitForLogged(1).size(), 1u);
        EXPECT_TRUE(WaitForPeriods(0));
        const std::string logged = WaitForLogged(1)[0];
        const std::string message = logged.substr(logged.find(": ") + 2);
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
    clock.SetMidiClockCallback(clocks_.Counter());
    clock.ArmPlayback(10, 24, 0.002, 0, 0);
    Layer::Instance().Fail(Fault::kTimer, 1, 1);
    clock.ContinuousMode();
    EXPECT_EQ(WaitForLogged(1).size(), 1u);
    EXPECT_TRUE(WaitForPeriods(0));
    EXPECT_THAT(console.Take(), StartsWith("[ERROR] "));
    clock.ContinuousMode();
    clock.DisarmPlayback();
    EXPECT_EQ(clocks_.Count(), 1u);
}

TEST_F(ClockTimers, AClockMayBeDestroyedAtAnyMoment) {
    for (int round = 0; round < 1000; ++round) {
        auto clock = std::make_unique<StandardMidiClockImpl>();
        const std::size_t seen = clocks_.Count();
        clock->SetMidiClockCallback(clocks_.Counter());
        clock->ArmPlayback(10, 24, 0.001, 0, 0);
        if (round % 7 != 0)
            clock->ContinuousMode();
        if (round % 7 > 2) {
            ASSERT_TRUE(clocks_.WaitFor(seen + static_cast<std::size_t>(round % 7 - 2))) << round;
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
    std::mutex mutex;
    std::condition_variable came;
    double wanted = 0;
    bool seen = false;
    clock.SetMidiClockCallback([&](double beatsPerMinute) {
        std::lock_guard lock(mutex);
        if (beatsPerMinute == wanted) {
            seen = true;
            came.notify_all();
        }
    });
    for (int round = 0; round < 500; ++round) {
        // One clock per click: the beats per minute tell the rounds apart.
        const double clockTime = 0.001 + 0.000001 * round;
        clock.DisarmPlayback();
        {
            std::lock_guard lock(mutex);
            wanted = 60.0 / clockTime;
            seen = false;
        }
        clock.ArmPlayback(10, 1, clockTime, 0, 0);
        clock.ContinuousMode();
        std::unique_lock lock(mutex);
        ASSERT_TRUE(came.wait_for(lock, kLong, [&] { return seen; })) << round;
    }
}

TEST_F(ClockTimers, AStartOfAnArmingBeforeDoesNotStartTheNextOne) {
    StandardMidiClockImpl clock;
    std::atomic<int> early{0};
    std::atomic<double> unstarted{0};
    clock.SetMidiClockCallback([&](double beatsPerMinute) { early += beatsPerMinute == unstarted; });
    for (int round = 0; round < 300; ++round) {
        const double clockTime = 0.01 + 0.00001 * round;
        clock.ArmPlayback(10, 1, 0.009, 0, 0);
        clock.ContinuousMode();
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
