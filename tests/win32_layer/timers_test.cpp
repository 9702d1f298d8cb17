#include <gtest/gtest.h>
#include <windows.h>

#include <mmsystem.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "win32_layer/layer.h"

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using win32_layer::Fault;
using win32_layer::Layer;

namespace {

constexpr auto kPatience = 10s;

struct FiredTimer {
    UINT id;
    steady_clock::time_point time;
    std::thread::id thread;
};

/// Collects the callbacks of some timers; GetFired() waits for all of them.
class Collector {
public:
    UINT Set(UINT milliseconds) {
        return timeSetEvent(milliseconds, 0, &OnTimer, reinterpret_cast<DWORD_PTR>(this), TIME_ONESHOT);
    }
    std::vector<FiredTimer> GetFired() {
        EXPECT_TRUE(Layer::Instance().WaitForTimers(kPatience));
        const std::lock_guard lock(mutex_);
        return fired_;
    }
    int GetOverlaps() const { return overlaps_; }

private:
    static void CALLBACK OnTimer(UINT id, UINT, DWORD_PTR user, DWORD_PTR, DWORD_PTR) {
        auto& self = *reinterpret_cast<Collector*>(user);
        self.overlaps_ += self.running_.exchange(true);
        {
            const std::lock_guard lock(self.mutex_);
            self.fired_.push_back({id, steady_clock::now(), std::this_thread::get_id()});
        }
        self.running_ = false;
    }
    std::mutex mutex_;
    std::vector<FiredTimer> fired_;
    std::atomic<bool> running_{false};
    std::atomic<int> overlaps_{0};
};

class OneShotTimers : public testing::Test {
protected:
    OneShotTimers() { Layer::Instance().Reset(); }
    ~OneShotTimers() override { Layer::Instance().Reset(); }
};

TEST_F(OneShotTimers, EachFiresOnceNotEarlyOnTheOneTimerThread) {
    Collector collector;
    const auto start = steady_clock::now();
    UINT ids[5];
    for (UINT i = 0; const UINT milliseconds : {300u, 10u, 1u, 20u, 10u})
        EXPECT_NE(ids[i++] = collector.Set(milliseconds), 0u);
    const UINT order[] = {ids[2], ids[1], ids[4], ids[3], ids[0]};
    const auto fired = collector.GetFired();
    ASSERT_EQ(fired.size(), 5u);
    const std::chrono::milliseconds due[] = {1ms, 10ms, 10ms, 20ms, 300ms};
    for (std::size_t i = 0; i < fired.size(); ++i) {
        EXPECT_EQ(fired[i].id, order[i]) << i;
        EXPECT_GE(fired[i].time - start, due[i]) << i;
        EXPECT_LT(fired[i].time - start, due[i] + 5s) << i;
        EXPECT_EQ(fired[i].thread, fired[0].thread) << i;
    }
    EXPECT_NE(fired[0].thread, std::this_thread::get_id());
    EXPECT_EQ(Layer::Instance().GetCounters().timersSet, 5u);
}

TEST_F(OneShotTimers, TimersSetFromSeveralThreadsRunOneAfterAnother) {
    Collector collector;
    std::latch start(4);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (UINT timer = 0; timer < 100; ++timer)
                collector.Set(1 + timer % 5);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(collector.GetFired().size(), 400u);
    EXPECT_EQ(collector.GetOverlaps(), 0);
    EXPECT_EQ(Layer::Instance().GetCounters().outstandingTimers, 0);
}

TEST_F(OneShotTimers, AKilledTimerDoesNotFireAndNoLongerCounts) {
    Collector collector;
    const UINT timer = collector.Set(500'000);
    EXPECT_FALSE(Layer::Instance().WaitForTimers(0ms));
    EXPECT_EQ(timeKillEvent(timer), 0u);
    EXPECT_EQ(timeKillEvent(timer), 11u);
    EXPECT_TRUE(collector.GetFired().empty());
}

TEST_F(OneShotTimers, WhatIsNoOneShotCallbackInRangeIsRefused) {
    const LPTIMECALLBACK callback = [](UINT, UINT, DWORD_PTR, DWORD_PTR, DWORD_PTR) {};
    EXPECT_EQ(timeSetEvent(0, 0, callback, 0, TIME_ONESHOT), 0u);
    EXPECT_EQ(timeSetEvent(1'000'001, 0, callback, 0, TIME_ONESHOT), 0u);
    EXPECT_EQ(timeSetEvent(1, 0, nullptr, 0, TIME_ONESHOT), 0u);
    EXPECT_EQ(timeSetEvent(1, 0, callback, 0, TIME_PERIODIC), 0u);
    Layer::Instance().Fail(Fault::kTimer, 8, 1);
    EXPECT_EQ(timeSetEvent(1, 0, callback, 0, TIME_ONESHOT), 0u);
    EXPECT_EQ(GetLastError(), 8u);
    EXPECT_EQ(Layer::Instance().GetCounters().timersSet, 0u);
}

BOOL SetTimer(HANDLE timer, LONGLONG dueTime) {
    LARGE_INTEGER due{};
    due.QuadPart = dueTime;
    return SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE);
}

TEST(WaitableTimer, FiresWhenDueAndReleasesOneWaitUnlessManual) {
    constexpr LONGLONG kEarliest = std::numeric_limits<LONGLONG>::min();
    const LONGLONG year2000 = 125'911'584'000'000'000;
    const struct {
        LONGLONG due;
        DWORD wait, result;
        std::chrono::milliseconds atLeast;
    } rows[] = {{0, 0, WAIT_OBJECT_0, 0ms},
                {-1, 5000, WAIT_OBJECT_0, 0ms},
                {-200'000, 5000, WAIT_OBJECT_0, 20ms},
                {-200'000, INFINITE, WAIT_OBJECT_0, 20ms},
                {-600'000'000, 20, WAIT_TIMEOUT, 20ms},
                {-600'000'000, 0, WAIT_TIMEOUT, 0ms},
                {kEarliest, 1, WAIT_TIMEOUT, 1ms},
                {year2000, 0, WAIT_OBJECT_0, 0ms},
                {std::numeric_limits<LONGLONG>::max(), 1, WAIT_TIMEOUT, 1ms}};
    for (const BOOL manual : {FALSE, TRUE}) {
        const HANDLE timer = CreateWaitableTimerW(nullptr, manual, nullptr);
        ASSERT_NE(timer, nullptr);
        EXPECT_EQ(WaitForSingleObject(timer, 0), WAIT_TIMEOUT);
        for (const auto& row : rows) {
            const auto start = steady_clock::now();
            EXPECT_TRUE(SetTimer(timer, row.due)) << row.due;
            EXPECT_EQ(WaitForSingleObject(timer, row.wait), row.result) << row.due;
            EXPECT_GE(steady_clock::now() - start, row.atLeast) << row.due;
            EXPECT_EQ(WaitForSingleObject(timer, 0),
                      row.result == WAIT_OBJECT_0 && manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT)
                << row.due;
        }
        EXPECT_TRUE(CloseHandle(timer));
    }
}

TEST(WaitableTimer, SettingItAnewWakesAThreadThatAlreadyWaits) {
    const HANDLE timer = CreateWaitableTimerW(nullptr, FALSE, nullptr);
    SetTimer(timer, -36'000'000'000);  // an hour
    std::latch aboutToWait(1);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] {
        aboutToWait.count_down();
        result = WaitForSingleObject(timer, 10'000);
    });
    aboutToWait.wait();
    SetTimer(timer, 0);
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
    CloseHandle(timer);
}

TEST(WaitableTimer, ANameIsSharedAsLongAsSomeoneHasItOpen) {
    const HANDLE first = CreateWaitableTimerW(nullptr, FALSE, L"shared");
    EXPECT_EQ(GetLastError(), 0u);
    const HANDLE second = CreateWaitableTimerW(nullptr, FALSE, L"shared");
    EXPECT_EQ(GetLastError(), 183u);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    SetTimer(first, 0);
    EXPECT_TRUE(CloseHandle(first));
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(second));
    const HANDLE third = CreateWaitableTimerW(nullptr, FALSE, L"shared");
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(WaitForSingleObject(third, 0), WAIT_TIMEOUT);
    CloseHandle(third);
}

TEST(WaitableTimer, ClosingTheHandleUnderAWaitLeavesNobodyHanging) {
    for (const bool armed : {false, true}) {
        const HANDLE timer = CreateWaitableTimerW(nullptr, FALSE, nullptr);
        if (armed)
            SetTimer(timer, -500'000);
        std::latch aboutToWait(1);
        DWORD result = 0, error = 0;
        std::thread waiter([&] {
            aboutToWait.count_down();
            result = WaitForSingleObject(timer, INFINITE);
            error = GetLastError();
        });
        aboutToWait.wait();
        EXPECT_TRUE(CloseHandle(timer));
        waiter.join();
        // The wait may have begun only after the close.
        if (result != WAIT_OBJECT_0) {
            EXPECT_EQ(result, WAIT_FAILED);
            EXPECT_EQ(error, 6u);
        } else {
            EXPECT_TRUE(armed);
        }
        EXPECT_FALSE(CloseHandle(timer));
        EXPECT_EQ(GetLastError(), 6u);
        EXPECT_FALSE(SetTimer(timer, 0));
        EXPECT_EQ(WaitForSingleObject(timer, 0), WAIT_FAILED);
    }
}

TEST(ThreadPriority, EveryLevelIsAcceptedForTheCurrentThreadOnlyAndErrorsBelongToTheirThread) {
    SetLastError(0);
    std::thread([] {
        for (const int level : {-15, -2, -1, 0, 1, 2, 15})
            EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), level)) << level;
        EXPECT_FALSE(SetThreadPriority(GetCurrentThread(), 3));
        EXPECT_EQ(GetLastError(), 87u);
        EXPECT_FALSE(SetThreadPriority(nullptr, THREAD_PRIORITY_HIGHEST));
        EXPECT_EQ(GetLastError(), 6u);
        Layer::Instance().Fail(Fault::kThreadPriority, 5, 1);
        EXPECT_FALSE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST));
        EXPECT_EQ(GetLastError(), 5u);
    }).join();
    EXPECT_EQ(GetLastError(), 0u);
}

}  // namespace
