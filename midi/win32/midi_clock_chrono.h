#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "midi/vemo_midi_export.h"

/// Keeps a clock on time in spite of timers that come late: measures each
/// interval between clocks, and shortens the next by what the last ones were
/// late on average. Also collects timing statistics that a thread of its own
/// sends to the user interface.
///
/// Owner:   a clock, as a member. The destructor joins the report thread.
/// Threads: any. Does not block, allocates nothing.
/// Lock:    mutex_, a leaf; not held while a report is sent.
/// Units:   seconds; statistics in nanoseconds.
/// Errors:  none leave the report thread.
class VEMO_MIDI_EXPORT MidiClockChrono {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using TimeSource = std::function<TimePoint()>;

    /// A report is sent each time StopTotal() was called so many times.
    explicit MidiClockChrono(unsigned int reportInterval, TimeSource timeSource = Now);
    ~MidiClockChrono();
    MidiClockChrono(const MidiClockChrono&) = delete;
    MidiClockChrono& operator=(const MidiClockChrono&) = delete;

    /// Begins an interval that is to last clockTime. The first after a reset
    /// measures nothing.
    void Start(double clockTime);
    /// The running interval is to last that long after all.
    void SetExpectedPeriod(double clockTime);
    /// clockTime less what timers are late; clockTime itself, and a fresh
    /// beginning, where that would be less than nothing.
    double CorrectClockPeriodForAverageError(double clockTime);
    double GetSecondsSinceStart();
    void ResetErrorCorrection();

    /// Statistics for whoever measures; the clock itself feeds none.
    void ReportClockTime(double clockTime);
    void StopOverhead();
    void StopTotal();

    /// The report thread's body.
    void RunLoop();

    static TimePoint Now();
    static std::int64_t GetTimeDifferenceNanoSeconds(TimePoint later, TimePoint earlier);
    static double GetTimeDifferenceSeconds(TimePoint later, TimePoint earlier);

private:
    static constexpr std::size_t kErrors = 20;

    // The caller holds mutex_.
    void ResetPeriodicErrors_();
    double GetAverageError_() const;
    void ReportPeriodicError_(double expectedPeriod, double actualPeriod);
    void AddTotalNanoSeconds_(unsigned long long nanoSeconds);

    void Report_();

    const TimeSource timeSource_;
    const std::uint32_t reportInterval_;
    std::mutex mutex_;
    std::condition_variable reportCondition_;
    // Guarded by mutex_.
    bool running_ = true;
    bool reportIsDue_ = false;
    std::uint32_t sampleCount_ = 0;
    std::uint64_t overheadTotal_ = 0;
    std::uint64_t timeTotal_ = 0;
    std::uint64_t clockTimeCount_ = 0;
    double clockTimeSum_ = 0;
    TimePoint start_;
    double expectedPeriod_ = 0;                     // 0: none
    std::array<double, kErrors> periodicErrors_{};  // a ring: a deque would allocate now and then
    std::size_t oldestError_ = 0;
    int errorCount_ = 0;
    bool hasInitialError_ = false;
    double correction_ = 0;

    std::thread reportThread_;
};
