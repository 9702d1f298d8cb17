#include "midi/win32/standard_midi_clock_impl.h"

// mmsystem.h needs windows.h before it.
#include <windows.h>

#include <mmsystem.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <exception>
#include <limits>
#include <string>
#include <vector>

#include "midi/vemo_midi_error.h"
#include "vemo_core/exception_log.h"
#include "zell/cout_buffer.h"
#include "zell/log_filter.h"

namespace {

constexpr char kSourcePath[] = "midi/Sources/win32/standard_midi_clock_impl";
constexpr char kTimerCall[] = "timeSetEvent";
constexpr unsigned int kPeriodMilliseconds = 1;
constexpr std::chrono::seconds kLastTimerWait{5};
constexpr std::size_t kUsualTimers = 16;

unsigned int ToTimerDelay(double seconds) {
    const double milliseconds = seconds * 1000;
    if (!(milliseconds >= 1))
        return 1;
    return static_cast<unsigned int>(
        std::min(milliseconds, static_cast<double>(std::numeric_limits<unsigned int>::max())));
}

/// The end of a chain of timers, whatever ends it: gives the timer period back
/// unless another timer carries the chain on.
class ChainEnd {
public:
    ChainEnd() = default;
    ~ChainEnd() {
        if (!isCarriedOn_)
            timeEndPeriod(kPeriodMilliseconds);
    }
    ChainEnd(const ChainEnd&) = delete;
    ChainEnd& operator=(const ChainEnd&) = delete;
    void CarryOn() { isCarriedOn_ = true; }

private:
    bool isCarriedOn_ = false;
};

}  // namespace

/// The timers that are set and have not returned, of all clocks, each with the
/// run that it was set under. The platform hands a callback the clock's address
/// and nothing else, and a timer can neither be taken back nor trusted to come
/// before its clock is gone: it is looked up here before the clock is touched.
///
/// Owner:   the process, never destroyed: a timer may come while it ends.
/// Lock:    mutex_, a leaf but for timeSetEvent.
class StandardMidiClockImpl::Timers {
public:
    static Timers& Instance() {
        static Timers& timers = *new Timers;
        return timers;
    }

    /// False when the platform refuses.
    bool Set(StandardMidiClockImpl& clock, const Run& run, unsigned int delayMilliseconds) {
        // Held over the call, so that a timer which comes at once finds itself.
        std::lock_guard lock(mutex_);
        timers_.push_back({&clock, run, 0, false});
        timers_.back().id =
            timeSetEvent(delayMilliseconds, 0, &Timers::OnTimer, reinterpret_cast<DWORD_PTR>(&clock), TIME_ONESHOT);
        if (timers_.back().id != 0)
            return true;
        timers_.pop_back();
        return false;
    }

    /// Returns when no timer of the clock is left, at most so much later. Those
    /// that are then still to come are forgotten, and their chains ended here.
    void WaitForLast(const StandardMidiClockImpl& clock, std::chrono::seconds atMost) {
        std::unique_lock lock(mutex_);
        const auto isOfClock = [&clock](const Timer& timer) { return timer.clock == &clock; };
        const auto isGone = [&] { return std::none_of(timers_.begin(), timers_.end(), isOfClock); };
        if (returned_.wait_for(lock, atMost, isGone))
            return;
        const auto forgotten =
            std::erase_if(timers_, [&](const Timer& timer) { return isOfClock(timer) && !timer.isRunning; });
        lock.unlock();
        zell::CoutBuffer() << "WARNING: StandardMidiClockImpl is destroyed before its last timer." << zell::endl;
        for (std::size_t i = 0; i < forgotten; ++i)
            timeEndPeriod(kPeriodMilliseconds);
    }

private:
    struct Timer {
        StandardMidiClockImpl* clock;
        Run run;
        UINT id;
        bool isRunning;
    };

    Timers() { timers_.reserve(kUsualTimers); }

    static void CALLBACK OnTimer(UINT id, UINT, DWORD_PTR user, DWORD_PTR, DWORD_PTR) {
        Instance().Run_(id, reinterpret_cast<StandardMidiClockImpl*>(user));
    }

    void Run_(UINT id, StandardMidiClockImpl* clock) {
        Run run;
        {
            std::lock_guard lock(mutex_);
            const auto timer = std::find_if(timers_.begin(), timers_.end(), [&](const Timer& each) {
                return each.clock == clock && each.id == id && !each.isRunning;
            });
            if (timer == timers_.end())
                return;  // its clock is gone
            timer->isRunning = true;
            run = timer->run;
        }
        clock->DoTimerCallbackFromThread(run);
        std::lock_guard lock(mutex_);
        timers_.erase(std::find_if(timers_.begin(), timers_.end(), [&](const Timer& each) {
            return each.clock == clock && each.id == id && each.isRunning;
        }));
        returned_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable returned_;
    std::vector<Timer> timers_;  // guarded by mutex_, in the order of setting
};

StandardMidiClockImpl::StandardMidiClockImpl() : chrono_(100) {
    Timers::Instance();
    clockThread_ = std::thread([this] {
        try {
            RunLoop();
        } catch (const std::exception& e) {
            VemoLogException(e.what(), kSourcePath, __LINE__);
        } catch (...) {
            VemoLogException("Unknown exception.", kSourcePath, __LINE__);
        }
    });
}

StandardMidiClockImpl::~StandardMidiClockImpl() {
    {
        std::lock_guard lock(GetMutex());
        running_ = false;
        BeginRun();  // so that whatever runs is of a run before, and ends at its next clock
    }
    StartClock();
    clockThread_.join();
    Timers::Instance().WaitForLast(*this, kLastTimerWait);
}

void StandardMidiClockImpl::SetClockTimer(double clockTime) {
    // Before the correction, which may begin afresh and then expects nothing.
    chrono_.SetExpectedPeriod(clockTime);
    const double corrected = chrono_.CorrectClockPeriodForAverageError(clockTime);
    const unsigned int delayMilliseconds = ToTimerDelay(corrected - chrono_.GetSecondsSinceStart());
    const int line = __LINE__ + 2;
    zell::LogFilter(zell::LogAttempt, kSourcePath, line, kTimerCall, false);
    if (!Timers::Instance().Set(*this, GetRun(), delayMilliseconds)) {
        const std::string message = zell::CreateFailureMessage(kSourcePath, line, kTimerCall, "");
        zell::CoutBuffer() << "[ERROR] " << message << zell::endl;
        throw VemoMidiError(message);
    }
    zell::LogFilter(zell::LogSuccess, kSourcePath, line, kTimerCall, false);
}

void StandardMidiClockImpl::StartClock() {
    const std::uint64_t arming = GetRun().arming;
    std::lock_guard lock(startMutex_);
    startIsPending_ = true;
    startArming_ = arming;
    startCondition_.notify_one();
}

void StandardMidiClockImpl::RunLoop() {
    while (true) {
        std::uint64_t arming = 0;
        {
            std::unique_lock lock(startMutex_);
            startCondition_.wait(lock, [this] { return startIsPending_; });
            startIsPending_ = false;
            arming = startArming_;
        }
        Run run;
        {
            std::lock_guard lock(GetMutex());
            if (!running_)
                return;
            // Armed anew since: a clock now would play the first cycle before the
            // start that is still to come, and be one clock behind from then on.
            if (GetRun().arming != arming)
                continue;
            // A run of its own for each start taken up: a second request that
            // came just before would otherwise begin a second chain of the same.
            run = BeginRun();
        }
        if (timeBeginPeriod(kPeriodMilliseconds) != 0)
            zell::CoutBuffer() << "timeBeginPeriod(1) failed." << zell::endl;
        chrono_.ResetErrorCorrection();
        DoTimerCallback(run);
    }
}

void StandardMidiClockImpl::DoTimerCallback(const Run& run) {
    ChainEnd end;
    {
        // Another start, which measures now, comes before this or waits for it.
        std::lock_guard lock(GetMutex());
        if (GetRun() != run)
            return;
        chrono_.Start(clockState_.GetClockTime());
    }
    if (AdvanceClock(run))
        end.CarryOn();
}

void StandardMidiClockImpl::DoTimerCallback() {
    DoTimerCallback(GetRun());
}

void StandardMidiClockImpl::DoTimerCallbackFromThread() {
    DoTimerCallbackFromThread(GetRun());
}

void StandardMidiClockImpl::DoTimerCallbackFromThread(const Run& run) {
    try {
        DoTimerCallback(run);
    } catch (const std::exception& e) {
        VemoLogException(e.what(), kSourcePath, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSourcePath, __LINE__);
    }
}
