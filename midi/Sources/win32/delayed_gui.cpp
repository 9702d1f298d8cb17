#include "midi/win32/delayed_gui.h"

#include <cmath>
#include <exception>
#include <utility>

#include "vemo_core/exception_log.h"
#include "zell/cout_buffer.h"

namespace {

constexpr char kSource[] = "midi/Sources/win32/delayed_gui";
constexpr wchar_t kTimerName[] = L"DelayedCallbackTimer";
constexpr DWORD kLongestWaitMilliseconds = 2000;
constexpr std::size_t kUsualQueueLength = 256;

HANDLE CreateTimer() {
    HANDLE timer = CreateWaitableTimerW(nullptr, FALSE, kTimerName);
    if (timer != nullptr && GetLastError() == ERROR_ALREADY_EXISTS) {
        // Another output's timer by the same name: its settings would move ours.
        CloseHandle(timer);
        timer = CreateWaitableTimerW(nullptr, FALSE, nullptr);
    }
    return timer;
}

void SetTimer(HANDLE timer, double seconds) {
    LARGE_INTEGER due;
    due.QuadPart = -std::llround(seconds * 10'000'000);
    SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE);
}

}  // namespace

DelayedGui::DelayedGui(std::function<void(std::uint32_t)> callback, double secondsDelay)
    : callback_(std::move(callback)), timer_(CreateTimer()), secondsDelay_(secondsDelay) {
    scheduledTickIndices_.reserve(kUsualQueueLength);
    thread_ = std::thread([this] { RunThread(); });
}

DelayedGui::~DelayedGui() {
    {
        std::lock_guard lock(mutex_);
        shouldRun_ = false;
        SetTimer(timer_, 0);
    }
    {
        std::lock_guard lock(conditionMutex_);
        condition_.notify_one();
    }
    thread_.join();
    if (timer_ != nullptr)
        CloseHandle(timer_);
}

void DelayedGui::SignalDelayedCallback(std::uint32_t tickIndex) {
    {
        std::lock_guard lock(mutex_);
        scheduledTickIndices_.push_back(tickIndex);
    }
    // Under the lock of the wait, so that a thread about to wait sees the entry.
    std::lock_guard lock(conditionMutex_);
    condition_.notify_one();
}

bool DelayedGui::PopTickIndex(std::uint32_t* tickIndex) {
    if (scheduledTickIndices_.empty())
        return false;
    *tickIndex = scheduledTickIndices_.front();
    scheduledTickIndices_.erase(scheduledTickIndices_.begin());
    return true;
}

bool DelayedGui::GetNextTickIndex(std::uint32_t* tickIndex) {
    std::lock_guard lock(mutex_);
    return PopTickIndex(tickIndex);
}

bool DelayedGui::HasScheduledCallbacks() {
    std::lock_guard lock(mutex_);
    return !scheduledTickIndices_.empty();
}

void DelayedGui::Reset() {
    std::lock_guard lock(mutex_);
    scheduledTickIndices_.clear();
    ++resets_;
}

double DelayedGui::GetSecondsDelay() {
    std::lock_guard lock(mutex_);
    return secondsDelay_;
}

void DelayedGui::SetSecondsDelay(double secondsDelay) {
    std::lock_guard lock(mutex_);
    secondsDelay_ = secondsDelay;
}

bool DelayedGui::GetShouldRun() {
    std::lock_guard lock(mutex_);
    return shouldRun_;
}

bool DelayedGui::StartTimer(std::uint64_t* resets) {
    // Set under the lock: a destructor that wakes this thread through the timer
    // must not have its wake-up replaced by the delay.
    std::lock_guard lock(mutex_);
    if (!shouldRun_)
        return false;
    *resets = resets_;
    // Dropped meanwhile: a timer for nothing would cut the next entry's delay short.
    if (!scheduledTickIndices_.empty())
        SetTimer(timer_, secondsDelay_);
    else
        SetTimer(timer_, 0);
    return true;
}

bool DelayedGui::TakeDueTickIndex(std::uint64_t resets, std::uint32_t* tickIndex) {
    std::lock_guard lock(mutex_);
    // After a reset the oldest entry is not the one whose delay has run out.
    return shouldRun_ && resets == resets_ && PopTickIndex(tickIndex);
}

void DelayedGui::RunLoop() {
    while (GetShouldRun()) {
        {
            std::unique_lock lock(conditionMutex_);
            condition_.wait(lock, [this] { return HasScheduledCallbacks() || !GetShouldRun(); });
        }
        std::uint64_t resets = 0;
        if (!StartTimer(&resets))
            return;
        const DWORD waitResult = WaitForSingleObject(timer_, kLongestWaitMilliseconds);
        if (waitResult != WAIT_OBJECT_0)
            zell::CoutBuffer() << "WARNING: DelayedGui returned early with waitResult = " << waitResult << zell::endl;
        std::uint32_t tickIndex = 0;
        if (TakeDueTickIndex(resets, &tickIndex))
            callback_(tickIndex);
    }
}

void DelayedGui::RunThread() {
    try {
        RunLoop();
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
}
