#include "midi/win32/delayed_gui.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/midi/arrivals.h"
#include "tests/midi/console_capture.h"
#include "tests/midi/exception_capture.h"
#include "tests/midi/patience.h"
#include "win32_layer/layer.h"

using namespace std::chrono_literals;
using win32_layer::Fault;
using win32_layer::Layer;

namespace {

using Clock = std::chrono::steady_clock;

/// What a display is told.
struct Display : Arrivals<std::uint32_t> {
    std::vector<Arrival> Await(int count) {
        EXPECT_TRUE(WaitFor(count));
        return Get();
    }
};

class DelayedGuiThread : public testing::Test {
protected:
    DelayedGuiThread() { Layer::Instance().Reset(); }
    ~DelayedGuiThread() override { Layer::Instance().Reset(); }
    Display display;
};

TEST_F(DelayedGuiThread, EntriesArriveInOrderOnePerDelayOnTheThreadOfItsOwn) {
    DelayedGui gui(display.Callback(), 0.05);
    const auto begin = Clock::now();
    for (const std::uint32_t tickIndex : {480u, 960u, 0u})
        gui.SignalDelayedCallback(tickIndex);
    const auto arrivals = display.Await(3);
    ASSERT_EQ(arrivals.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(arrivals[i].value, std::vector<std::uint32_t>({480, 960, 0})[i]);
        EXPECT_GE(arrivals[i].time - begin, 50ms * (i + 1)) << i;
        EXPECT_NE(arrivals[i].thread, std::this_thread::get_id());
        EXPECT_EQ(arrivals[i].thread, arrivals[0].thread);
    }
    gui.SetSecondsDelay(0);
    gui.SignalDelayedCallback(1);
    EXPECT_EQ(display.Await(4).back().value, 1u);
    EXPECT_FALSE(gui.HasScheduledCallbacks());
}

TEST_F(DelayedGuiThread, WhatIsSignalledAfterAResetGetsItsWholeDelay) {
    DelayedGui gui(display.Callback(), 0.2);
    gui.SignalDelayedCallback(1);
    std::this_thread::sleep_for(100ms);  // the first entry's delay is half over
    gui.Reset();
    const auto signalled = Clock::now();
    gui.SignalDelayedCallback(2);
    const auto arrivals = display.Await(1);
    ASSERT_EQ(arrivals.size(), 1u);
    EXPECT_EQ(arrivals[0].value, 2u);
    EXPECT_GE(arrivals[0].time - signalled, 200ms);
}

TEST_F(DelayedGuiThread, DestructionEndsADelayEarlyAndWithoutItsCallback) {
    int called = 0;
    const auto begin = Clock::now();
    for (int round = 0; round < 3; ++round) {
        DelayedGui gui([&](std::uint32_t) { ++called; }, 1.9);
        if (round > 0)
            gui.SignalDelayedCallback(1);
        if (round == 2)
            std::this_thread::sleep_for(20ms);  // now the thread is in the delay
    }
    EXPECT_LT(Clock::now() - begin, 1500ms);
    EXPECT_EQ(called, 0);
}

TEST_F(DelayedGuiThread, NoCallbackBeginsOnceDestructionIsOver) {
    std::atomic<bool> destroyed = false;
    std::atomic<int> late = 0;
    MustEnd("destruction of delayed callbacks", [&] {
        for (int round = 0; round < 500; ++round) {
            destroyed = false;
            {
                DelayedGui gui([&](std::uint32_t) { late += destroyed; }, 0);
                for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(round % 4); ++i)
                    gui.SignalDelayedCallback(i);
                if (round % 3 == 0)
                    gui.Reset();
            }
            destroyed = true;
        }
    });
    EXPECT_EQ(late, 0);
}

TEST_F(DelayedGuiThread, TwoAtOnceDoNotShareTheTimerOfOneName) {
    DelayedGui slow(display.Callback(), 0.4);
    Display other;
    DelayedGui quick(other.Callback(), 0.01);
    const auto begin = Clock::now();
    slow.SignalDelayedCallback(1);
    for (std::uint32_t i = 0; i < 5; ++i)
        quick.SignalDelayedCallback(i);
    EXPECT_LT(other.Await(5).back().time - begin, 2s);  // that is where a timer that was taken away gives up
    EXPECT_GE(display.Await(1).front().time - begin, 400ms);
}

TEST_F(DelayedGuiThread, ATimerThatFailsDelaysNothingAndIsReported) {
    for (const Fault fault : {Fault::kWaitableTimer, Fault::kWait}) {
        ConsoleCapture console;
        Layer::Instance().Fail(fault, 6, 1);
        Display shown;
        DelayedGui gui(shown.Callback(), 0.22);
        gui.SignalDelayedCallback(7);
        EXPECT_EQ(shown.Await(1).front().value, 7u);
        EXPECT_EQ(console.Take(), "WARNING: DelayedGui returned early with waitResult = 4294967295\n");
    }
}

TEST_F(DelayedGuiThread, ACallbackThatThrowsIsLoggedAndTheLastOne) {
    ExceptionCapture log;
    {
        Count called;
        DelayedGui gui(
            [&](std::uint32_t) {
                called.Add();
                throw std::runtime_error("no display");
            },
            0);
        gui.SignalDelayedCallback(1);
        EXPECT_TRUE(called.WaitFor(1));
        gui.SignalDelayedCallback(2);
        std::uint32_t tickIndex = 0;
        EXPECT_TRUE(gui.GetNextTickIndex(&tickIndex));
        EXPECT_EQ(tickIndex, 2u);
        EXPECT_FALSE(gui.GetNextTickIndex(&tickIndex));
    }
    EXPECT_THAT(log.Take(), testing::ElementsAre("midi/Sources/win32/delayed_gui: no display"));
}

}  // namespace
