#include "midi/win32/midi_clock_chrono.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/midi/arrivals.h"
#include "tests/midi/at_once.h"
#include "vemo_core/gui_dispatcher.h"

using namespace std::chrono_literals;

namespace {

/// A chrono whose time moves only when the test moves it.
struct Timed {
    MidiClockChrono::TimePoint now{};
    MidiClockChrono chrono;

    explicit Timed(unsigned int reportInterval = 100) : chrono(reportInterval, [this] { return now; }) {}
    /// One interval of that length, the next to last 20 ms.
    void Interval(std::chrono::nanoseconds length) {
        now += length;
        chrono.Start(0.02);
    }
    double Corrected() { return chrono.CorrectClockPeriodForAverageError(0.02); }
};

/// What the user interface is sent while it lives.
struct DebugMessages : Arrivals<std::string> {
    DebugMessages() { notify::guiDispatcher.SetReceiver({{}, Callback()}); }
    ~DebugMessages() { notify::guiDispatcher.SetReceiver({}); }
};

TEST(MidiClockChrono, LatenessIsTakenOffTheNextIntervalAndFollowedOnAverage) {
    Timed timed;
    timed.chrono.Start(0.02);
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.02);  // nothing measured yet
    timed.Interval(23ms);
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.017);
    for (int i = 0; i < 20; ++i) {
        timed.Interval(i == 0 ? 40ms : 21ms);
        EXPECT_DOUBLE_EQ(timed.Corrected(), 0.017) << i;
    }
    timed.Interval(21ms);  // the 21st, which pushes the one of 40 ms out
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.016);
    timed.Interval(25ms);
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.016);

    timed.chrono.ResetErrorCorrection();
    timed.Interval(60ms);
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.02);
    timed.Interval(19ms);
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.021);  // early is corrected too
}

TEST(MidiClockChrono, ACorrectionBeyondTheClockTimeIsDroppedAndItBeginsAfresh) {
    Timed timed;
    timed.chrono.Start(0.02);
    timed.Interval(45ms);
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.02);
    timed.Interval(30ms);  // not measured: the reset expects nothing
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.02);
    timed.Interval(22ms);
    EXPECT_DOUBLE_EQ(timed.Corrected(), 0.018);
}

TEST(MidiClockChrono, ReportsAveragesEachTimeEnoughSamplesCame) {
    DebugMessages messages;
    {
        Timed timed(2);
        for (int sample = 0; sample < 2; ++sample) {
            timed.chrono.Start(0.02);
            timed.chrono.ReportClockTime(0.02);
            timed.now += 1ms;
            timed.chrono.StopOverhead();
            timed.now += 24ms;
            timed.chrono.StopTotal();
        }
        ASSERT_TRUE(messages.WaitFor(1));
        ASSERT_EQ(messages.Count(), 1);
        EXPECT_EQ(messages.Get()[0].value,
                  "MidiClockChrono averageOverheadNanoSeconds = 1000000\n"
                  "averageTotalNanoSeconds = 25000000\n"
                  "averageExpectedClockTime nanoseconds = 20000000\n"
                  "Percent Error = 20%\n"
                  "Overhead as percentage of expected clock time = 5%\n"
                  "GetAverageError() = 0\n"
                  "initialPeriodicError = 0.005\n");
        timed.chrono.StopTotal();  // what is left is reported at the end
    }
    ASSERT_TRUE(messages.WaitFor(2));
    ASSERT_EQ(messages.Count(), 2);
    EXPECT_EQ(messages.Get()[1].value,
              "MidiClockChrono averageOverheadNanoSeconds = 0\n"
              "averageTotalNanoSeconds = 25000000\n");
}

TEST(MidiClockChrono, EndsAtOnceAndInSilenceWhenNothingWasMeasured) {
    DebugMessages messages;
    for (int round = 0; round < 300; ++round)
        MidiClockChrono chrono(100);
    Timed timed(1);
    timed.chrono.StopTotal();  // no time at all: nothing to divide by
    timed.chrono.ReportClockTime(0);
    EXPECT_TRUE(messages.WaitFor(1));
    EXPECT_EQ(messages.Count(), 1);
}

TEST(MidiClockChrono, GoesOnReportingHoweverFastSamplesCome) {
    DebugMessages messages;
    MidiClockChrono chrono(1);
    const auto measure = [&] {
        for (int sample = 0; sample < 20'000; ++sample)
            chrono.StopTotal();
    };
    AtOnce(measure, measure);
    for (int report = 0; report < 10; ++report) {  // the first may have been on its way
        const int seen = messages.Count();
        chrono.StopTotal();
        ASSERT_TRUE(messages.WaitFor(seen + 1));
    }
}

}  // namespace
