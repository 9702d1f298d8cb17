#include "timer_thread.h"

#include <algorithm>
#include <thread>

#include "faults.h"
#include "win32_layer/layer.h"

namespace win32_layer {

namespace {

constexpr UINT kShortestDelay = 1;
constexpr UINT kLongestDelay = 1'000'000;
// Room from the start: setting a timer is part of every clock and must not allocate.
constexpr std::size_t kUsualTimers = 256;

}  // namespace

TimerThread& TimerThread::Instance() {
    static TimerThread* const instance = new TimerThread;
    return *instance;
}

TimerThread::TimerThread() {
    timers_.reserve(kUsualTimers);
    // Detached: as on the platform, it ends with the process.
    std::thread([this] { Run(); }).detach();
}

UINT TimerThread::Set(std::chrono::milliseconds delay, LPTIMECALLBACK callback, DWORD_PTR user) {
    const Time due = std::chrono::steady_clock::now() + delay;
    const std::lock_guard lock(mutex_);
    UINT id = static_cast<UINT>(++lastNumber_);
    if (id == 0)
        id = static_cast<UINT>(++lastNumber_);
    timers_.push_back({due, lastNumber_, id, callback, user});
    std::push_heap(timers_.begin(), timers_.end(), IsLater);
    ++totals_.outstanding;
    ++totals_.set;
    wake_.notify_one();
    return id;
}

bool TimerThread::Kill(UINT timerId) {
    const std::lock_guard lock(mutex_);
    if (std::erase_if(timers_, [&](const Timer& timer) { return timer.id == timerId; }) == 0)
        return false;
    std::make_heap(timers_.begin(), timers_.end(), IsLater);
    if (--totals_.outstanding == 0)
        idle_.notify_all();
    return true;
}

bool TimerThread::WaitUntilIdle(std::chrono::milliseconds atMost) {
    std::unique_lock lock(mutex_);
    return idle_.wait_until(lock, std::chrono::steady_clock::now() + atMost, [&] { return totals_.outstanding == 0; });
}

void TimerThread::BeginPeriod() {
    const std::lock_guard lock(mutex_);
    ++totals_.periods;
}

bool TimerThread::EndPeriod() {
    const std::lock_guard lock(mutex_);
    return totals_.periods-- > 0;
}

TimerThread::Totals TimerThread::GetTotals() const {
    const std::lock_guard lock(mutex_);
    return totals_;
}

void TimerThread::Reset() {
    const std::lock_guard lock(mutex_);
    totals_.set = 0;
    if (totals_.outstanding == 0)
        totals_.periods = 0;
}

void TimerThread::Run() {
    Layer::GiveTimerPriority();
    std::unique_lock lock(mutex_);
    for (;;) {
        if (timers_.empty()) {
            wake_.wait(lock);
            continue;
        }
        const Timer next = timers_.front();
        if (std::chrono::steady_clock::now() < next.due) {
            wake_.wait_until(lock, next.due);
            continue;
        }
        std::pop_heap(timers_.begin(), timers_.end(), IsLater);
        timers_.pop_back();
        lock.unlock();
        next.callback(next.id, 0, next.user, 0, 0);
        lock.lock();
        // Only now: a callback that sets its successor leaves no moment without one.
        if (--totals_.outstanding == 0)
            idle_.notify_all();
    }
}

bool TimerThread::IsLater(const Timer& left, const Timer& right) {
    return left.due != right.due ? left.due > right.due : left.number > right.number;
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::TimerThread;

MMRESULT timeBeginPeriod(UINT milliseconds) {
    if (milliseconds < win32_layer::kShortestDelay || milliseconds > win32_layer::kLongestDelay)
        return TIMERR_NOCANDO;
    TimerThread::Instance().BeginPeriod();
    return TIMERR_NOERROR;
}

MMRESULT timeEndPeriod(UINT milliseconds) {
    if (milliseconds < win32_layer::kShortestDelay || milliseconds > win32_layer::kLongestDelay)
        return TIMERR_NOCANDO;
    return TimerThread::Instance().EndPeriod() ? TIMERR_NOERROR : TIMERR_NOCANDO;
}

MMRESULT timeSetEvent(UINT delayMilliseconds, UINT, LPTIMECALLBACK callback, DWORD_PTR user, UINT flags) {
    if (const auto code = Faults::Instance().Take(Fault::kTimer)) {
        SetLastError(*code);
        return 0;
    }
    // Periodic timers and events have no user yet; refused rather than run wrongly.
    if (!callback || flags != (TIME_ONESHOT | TIME_CALLBACK_FUNCTION) ||
        delayMilliseconds < win32_layer::kShortestDelay || delayMilliseconds > win32_layer::kLongestDelay)
        return 0;
    return TimerThread::Instance().Set(std::chrono::milliseconds(delayMilliseconds), callback, user);
}

MMRESULT timeKillEvent(UINT timerId) {
    return TimerThread::Instance().Kill(timerId) ? MMRESULT{TIMERR_NOERROR} : MMRESULT{MMSYSERR_INVALPARAM};
}
