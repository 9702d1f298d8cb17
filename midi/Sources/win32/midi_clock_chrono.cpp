#include "midi/win32/midi_clock_chrono.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <numeric>
#include <sstream>
#include <utility>

#include "vemo_core/exception_log.h"
#include "vemo_core/gui_dispatcher.h"

namespace {

constexpr char kSourcePath[] = "midi/Sources/win32/midi_clock_chrono";

std::uint64_t ToNanoSeconds(double seconds) {
    const double nanoSeconds = seconds * 1e9;
    if (!(nanoSeconds > 0))
        return 0;
    // 2^63, which a double holds exactly: everything below fits.
    return static_cast<std::uint64_t>(std::min(nanoSeconds, 9223372036854775808.0));
}

double Percent(double part, double whole) {
    return whole == 0 ? 0 : part / whole * 100.0;
}

}  // namespace

MidiClockChrono::MidiClockChrono(unsigned int reportInterval, TimeSource timeSource)
    : timeSource_(std::move(timeSource)), reportInterval_(reportInterval), start_(timeSource_()) {
    reportThread_ = std::thread([this] {
        try {
            RunLoop();
        } catch (const std::exception& e) {
            VemoLogException(e.what(), kSourcePath, __LINE__);
        } catch (...) {
            VemoLogException("Unknown exception.", kSourcePath, __LINE__);
        }
    });
}

MidiClockChrono::~MidiClockChrono() {
    {
        std::lock_guard lock(mutex_);
        running_ = false;
        reportCondition_.notify_one();
    }
    reportThread_.join();
}

void MidiClockChrono::Start(double clockTime) {
    const TimePoint now = timeSource_();
    std::lock_guard lock(mutex_);
    if (expectedPeriod_ > 0)
        ReportPeriodicError_(expectedPeriod_, GetTimeDifferenceSeconds(now, start_));
    expectedPeriod_ = clockTime;
    start_ = now;
}

void MidiClockChrono::SetExpectedPeriod(double clockTime) {
    std::lock_guard lock(mutex_);
    expectedPeriod_ = clockTime;
}

double MidiClockChrono::CorrectClockPeriodForAverageError(double clockTime) {
    {
        std::lock_guard lock(mutex_);
        if (!hasInitialError_)
            return clockTime;
        if (errorCount_ > static_cast<int>(kErrors)) {
            correction_ += GetAverageError_();
            ResetPeriodicErrors_();
        }
        const double corrected = clockTime - correction_;
        if (corrected >= 0)
            return corrected;
    }
    ResetErrorCorrection();
    return clockTime;
}

double MidiClockChrono::GetSecondsSinceStart() {
    const TimePoint now = timeSource_();
    std::lock_guard lock(mutex_);
    return GetTimeDifferenceSeconds(now, start_);
}

void MidiClockChrono::ResetErrorCorrection() {
    std::lock_guard lock(mutex_);
    expectedPeriod_ = 0;
    hasInitialError_ = false;
    correction_ = 0;
    ResetPeriodicErrors_();
}

void MidiClockChrono::ReportClockTime(double clockTime) {
    std::lock_guard lock(mutex_);
    clockTimeSum_ += clockTime;
    ++clockTimeCount_;
}

void MidiClockChrono::StopOverhead() {
    const TimePoint now = timeSource_();
    std::lock_guard lock(mutex_);
    overheadTotal_ += static_cast<std::uint64_t>(GetTimeDifferenceNanoSeconds(now, start_));
}

void MidiClockChrono::StopTotal() {
    const TimePoint now = timeSource_();
    std::lock_guard lock(mutex_);
    AddTotalNanoSeconds_(static_cast<unsigned long long>(GetTimeDifferenceNanoSeconds(now, start_)));
}

MidiClockChrono::TimePoint MidiClockChrono::Now() {
    return std::chrono::steady_clock::now();
}

std::int64_t MidiClockChrono::GetTimeDifferenceNanoSeconds(TimePoint later, TimePoint earlier) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(later - earlier).count();
}

double MidiClockChrono::GetTimeDifferenceSeconds(TimePoint later, TimePoint earlier) {
    return static_cast<double>(GetTimeDifferenceNanoSeconds(later, earlier)) / 1e9;
}

void MidiClockChrono::ResetPeriodicErrors_() {
    periodicErrors_.fill(0);
    errorCount_ = 0;
}

double MidiClockChrono::GetAverageError_() const {
    return std::accumulate(periodicErrors_.begin(), periodicErrors_.end(), 0.0) / static_cast<double>(kErrors);
}

void MidiClockChrono::ReportPeriodicError_(double expectedPeriod, double actualPeriod) {
    const double error = actualPeriod - expectedPeriod;
    if (!hasInitialError_) {
        correction_ = error;
        hasInitialError_ = true;
        return;
    }
    periodicErrors_[oldestError_] = error;
    oldestError_ = (oldestError_ + 1) % kErrors;
    if (errorCount_ < std::numeric_limits<int>::max())
        ++errorCount_;
}

void MidiClockChrono::AddTotalNanoSeconds_(unsigned long long nanoSeconds) {
    ++sampleCount_;
    timeTotal_ += nanoSeconds;
    if (sampleCount_ >= reportInterval_) {
        reportIsDue_ = true;
        reportCondition_.notify_one();
    }
}

void MidiClockChrono::RunLoop() {
    while (true) {
        {
            std::unique_lock lock(mutex_);
            reportCondition_.wait(lock, [this] { return reportIsDue_ || !running_; });
            if (sampleCount_ == 0)
                return;  // told to end, and nothing is left to say
        }
        Report_();
    }
}

void MidiClockChrono::Report_() {
    std::uint64_t averageOverhead = 0;
    std::uint64_t averageTotal = 0;
    bool hasClockTimes = false;
    double averageExpected = 0;
    double averageError = 0;
    double correction = 0;
    {
        std::lock_guard lock(mutex_);
        // With the samples, or one that comes just before them would ask for a report
        // of none.
        reportIsDue_ = false;
        averageOverhead = std::exchange(overheadTotal_, 0) / sampleCount_;
        averageTotal = std::exchange(timeTotal_, 0) / sampleCount_;
        sampleCount_ = 0;
        hasClockTimes = clockTimeCount_ != 0;
        if (hasClockTimes)
            averageExpected = std::exchange(clockTimeSum_, 0) / static_cast<double>(std::exchange(clockTimeCount_, 0));
        averageError = GetAverageError_();
        correction = correction_;
    }
    std::ostringstream text;
    text << "MidiClockChrono averageOverheadNanoSeconds = " << averageOverhead << '\n'
         << "averageTotalNanoSeconds = " << averageTotal << '\n';
    if (hasClockTimes) {
        const std::uint64_t expected = ToNanoSeconds(averageExpected);
        const auto total = static_cast<double>(averageTotal);
        text << "averageExpectedClockTime nanoseconds = " << expected << '\n'
             << "Percent Error = " << Percent(total - static_cast<double>(expected), total) << "%\n"
             << "Overhead as percentage of expected clock time = "
             << Percent(static_cast<double>(averageOverhead), static_cast<double>(expected)) << "%\n"
             << "GetAverageError() = " << averageError << '\n'
             << "initialPeriodicError = " << correction << '\n';
    }
    notify::guiDispatcher.SendMidiClockDebugMessage(text.str());
}
