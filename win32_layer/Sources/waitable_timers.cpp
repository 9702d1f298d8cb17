#include "waitable_timers.h"

#include <algorithm>
#include <cstdint>

#include "faults.h"

namespace win32_layer {

namespace {

using SteadyClock = std::chrono::steady_clock;
using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;  // of 100 ns

constexpr DWORD_PTR kHandleStep = 4;
// From the platform's epoch, 1601, to this system's, 1970.
constexpr std::chrono::seconds kEpochDifference{11'644'473'600};
// Far enough away, and near enough for nanoseconds in 64 bits.
constexpr Ticks kLongestDelay = std::chrono::hours(24 * 365 * 100);

Ticks GetDelay(LONGLONG dueTime) {
    if (dueTime < 0)
        return dueTime < -kLongestDelay.count() ? kLongestDelay : Ticks(-dueTime);
    const auto now =
        std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch()) + kEpochDifference;
    return std::clamp(Ticks(dueTime) - std::chrono::duration_cast<Ticks>(now), Ticks(0), kLongestDelay);
}

}  // namespace

WaitableTimers& WaitableTimers::Instance() {
    static WaitableTimers* const instance = new WaitableTimers;
    return *instance;
}

WaitableTimers::Created WaitableTimers::Create(bool manualReset, const std::wstring& name) {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<Timer> timer;
    if (!name.empty())
        for (const auto& [handle, known] : timers_)
            if (known->name == name)
                timer = known;
    const bool existed = timer != nullptr;
    if (!existed) {
        timer = std::make_shared<Timer>();
        timer->manualReset = manualReset;
        timer->name = name;
    }
    ++timer->handles;
    lastHandle_ += kHandleStep;
    const HANDLE handle = reinterpret_cast<HANDLE>(lastHandle_);
    timers_.emplace(handle, std::move(timer));
    return {handle, existed};
}

DWORD WaitableTimers::Set(HANDLE handle, LONGLONG dueTime) {
    // Absolute at once, so that a late waiter makes nothing later.
    const Time due = SteadyClock::now() + GetDelay(dueTime);
    const std::lock_guard lock(mutex_);
    const auto timer = Find(handle);
    if (!timer)
        return ERROR_INVALID_HANDLE;
    timer->due = due;
    timer->changed.notify_all();
    return ERROR_SUCCESS;
}

DWORD WaitableTimers::Wait(HANDLE handle, DWORD milliseconds) {
    const Time deadline =
        milliseconds == INFINITE ? kNever : SteadyClock::now() + std::chrono::milliseconds(milliseconds);
    std::unique_lock lock(mutex_);
    const auto timer = Find(handle);
    if (!timer) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    for (;;) {
        const Time now = SteadyClock::now();
        if (timer->due <= now) {
            if (!timer->manualReset)
                timer->due = kNever;
            return WAIT_OBJECT_0;
        }
        if (deadline <= now)
            return WAIT_TIMEOUT;
        const Time next = std::min(timer->due, deadline);
        if (next != kNever) {
            timer->changed.wait_until(lock, next);
        } else if (timer->handles > 0) {
            timer->changed.wait(lock);
        } else {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
    }
}

DWORD WaitableTimers::Close(HANDLE handle) {
    const std::lock_guard lock(mutex_);
    const auto timer = Find(handle);
    if (!timer)
        return ERROR_INVALID_HANDLE;
    timers_.erase(handle);
    --timer->handles;
    timer->changed.notify_all();
    return ERROR_SUCCESS;
}

std::shared_ptr<WaitableTimers::Timer> WaitableTimers::Find(HANDLE handle) const {
    const auto found = timers_.find(handle);
    return found == timers_.end() ? nullptr : found->second;
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::WaitableTimers;

namespace {

BOOL Failed(DWORD code) {
    SetLastError(code);
    return FALSE;
}

BOOL Succeeded(DWORD code) {
    return code == ERROR_SUCCESS ? TRUE : Failed(code);
}

}  // namespace

HANDLE CreateWaitableTimerW(LPSECURITY_ATTRIBUTES, BOOL manualReset, LPCWSTR name) {
    if (const auto code = Faults::Instance().Take(Fault::kWaitableTimer)) {
        SetLastError(*code);
        return nullptr;
    }
    const auto created = WaitableTimers::Instance().Create(manualReset != FALSE, name ? name : L"");
    // Also on success: a caller tells a new timer from a shared one by it.
    SetLastError(created.existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return created.handle;
}

BOOL SetWaitableTimer(HANDLE timer, const LARGE_INTEGER* dueTime, LONG periodMilliseconds, PTIMERAPCROUTINE routine,
                      LPVOID, BOOL) {
    if (const auto code = Faults::Instance().Take(Fault::kSetWaitableTimer))
        return Failed(*code);
    if (!dueTime)
        return Failed(ERROR_INVALID_PARAMETER);
    if (periodMilliseconds != 0 || routine)
        return Failed(ERROR_NOT_SUPPORTED);
    return Succeeded(WaitableTimers::Instance().Set(timer, dueTime->QuadPart));
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    if (const auto code = Faults::Instance().Take(Fault::kWait)) {
        SetLastError(*code);
        return WAIT_FAILED;
    }
    return WaitableTimers::Instance().Wait(object, milliseconds);
}

BOOL CloseHandle(HANDLE object) {
    return Succeeded(WaitableTimers::Instance().Close(object));
}
