#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/midi/exception_capture.h"
#include "tests/midi/output_rig.h"
#include "zell/thread_names.h"

using testing::ElementsAre;
using testing::IsEmpty;
using win32_layer::Delivery;

namespace {

/// Pulses a clock from a thread of its own, as fast as the machine goes.
class RunningClock {
public:
    explicit RunningClock(HandClock& clock)
        : thread_([this, &clock] {
              while (!end_) {
                  clock.Pulse();
                  std::this_thread::yield();
              }
          }) {}
    ~RunningClock() {
        end_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> end_ = false;
    std::thread thread_;
};

TEST(OutputHandshake, WhileADisarmWaitsForAFillNobodyArmsAndAllDisarmsReturn) {
    OutputRig rig;
    Door door;
    rig.fill = [&](MidiBuffer&, int cycle) {
        if (cycle == 4)
            door.Pass();
    };
    ASSERT_TRUE(rig.Start());
    rig.clock.Pulse();
    ASSERT_TRUE(door.WaitForArrival());
    Count disarmed;
    std::vector<std::thread> disarms;
    for (int i = 0; i < 3; ++i)
        disarms.emplace_back([&] {
            rig.output->DisarmPlayback();
            disarmed.Add();
        });
    EXPECT_TRUE(WaitUntil([&] { return !rig.output->PlaybackIsActive(); }));
    EXPECT_FALSE(rig.output->ArmPlayback());
    EXPECT_EQ(disarmed.Get(), 0);
    door.Open();
    MustEnd("disarms at once", [&] {
        for (std::thread& disarm : disarms)
            disarm.join();
    });
    EXPECT_FALSE(rig.output->ArmPlayback());
    EXPECT_TRUE(rig.Start());
}

TEST(OutputHandshake, DisarmsPrimesAndArmsOfSeveralThreadsAllReturn) {
    OutputRig rig;
    RunningClock clock(rig.clock);
    MustEnd("disarms against primes and arms", [&] {
        std::thread operators[2];
        for (std::thread& thread : operators)
            thread = std::thread([&] {
                for (int i = 0; i < 400; ++i) {
                    rig.output->DisarmPlayback();  // without the host mutex, at any moment of the other thread
                    if (i % 8 == 0)
                        std::this_thread::yield();
                }
            });
        for (int i = 0; i < 400; ++i) {
            std::unique_lock host(rig.hostMutex);
            rig.output->DisarmPlayback();
            rig.output->PrimeBuffers(host);
            rig.clock.Arm();
            rig.output->ArmPlayback();
        }
        for (std::thread& thread : operators)
            thread.join();
        rig.output->DisarmPlayback();
    });
    EXPECT_FALSE(rig.output->ArmPlayback());
    EXPECT_TRUE(rig.Start());
    EXPECT_TRUE(rig.active.WaitFor(rig.active.Get() + 10));
}

TEST(OutputHandshake, TheEndOfTheSongAndTheOperatorsStopBothReturn) {
    OutputRig rig;
    ExceptionCapture log;
    rig.fill = [](MidiBuffer& buffer, int cycle) {
        if (cycle == 6)
            buffer.SetIsLastBuffer(true);
    };
    RunningClock clock(rig.clock);
    MustEnd("two stops at once", [&] {
        for (int round = 0; round < 200; ++round) {
            const int before = rig.active.Get();
            EXPECT_TRUE(rig.Start());
            EXPECT_TRUE(rig.active.WaitFor(before + 1 + round % 7));
            rig.output->DisarmPlayback();
        }
    });
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(OutputHandshake, AFillThatThrowsEndsTheQueueAndNothingElse) {
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[] { throw std::runtime_error("no song"); }, "midi/Sources/midi_queue_thread: no song"},
        {[] { throw std::bad_function_call(); }, "midi/Sources/midi_queue_thread: bad_function_call"},
        {[] { throw 1; }, "midi/Sources/midi_queue_thread: Unknown exception."}};
    for (const bool disarmWaits : {true, false})
        for (const auto& [raise, logged] : rows) {
            SCOPED_TRACE(logged);
            ExceptionCapture log;
            OutputRig rig;
            Door door;
            rig.fill = [&, fail = raise](MidiBuffer&, int cycle) {
                if (cycle != 4)
                    return;
                door.Pass();
                fail();
            };
            ASSERT_TRUE(rig.Start());
            rig.clock.Pulse();
            ASSERT_TRUE(door.WaitForArrival());
            std::thread disarm;
            if (disarmWaits) {
                disarm = std::thread([&] { rig.output->DisarmPlayback(); });
                EXPECT_TRUE(WaitUntil([&] { return !rig.output->PlaybackIsActive(); }));
            }
            door.Open();
            MustEnd("a disarm after a fill that threw", [&] {
                if (disarm.joinable())
                    disarm.join();
                rig.output->DisarmPlayback();
            });
            EXPECT_TRUE(rig.Start());  // what is primed plays
            rig.clock.Pulse(4);
            MustEnd("destruction after a fill that threw", [&] { rig.output.reset(); });
            EXPECT_THAT(log.Take(), ElementsAre(logged));
        }
}

/// Gives a test the signal that the clock thread gives.
struct SignallingOutput : MidiOutputWin32 {
    using MidiOutputWin32::MidiOutputWin32;
    using MidiOutputWin32::SignalAsyncStoppedCallback;
};

TEST(OutputHandshake, EverySignalIsOneStoppedCallbackOnTheThreadMadeForIt) {
    OutputRig rig;
    Count stopped;
    std::atomic<int> onOtherThreads = 0;
    std::function<void()> again;
    SignallingOutput output(
        1, [](MidiBuffer&) {}, [](std::uint32_t) {},
        [&] {
            onOtherThreads += zell::threadNames.GetNameOfCurrentThread() != "MidiOutput::AsyncStoppedThread";
            if (stopped.Get() < 50)
                again();  // arrives while the callback runs
            stopped.Add();
        },
        [] {}, [](std::uint32_t) { return false; }, rig.clock, &rig.hostMutex);
    again = [&] { output.SignalAsyncStoppedCallback(); };
    for (int i = 0; i < 3; ++i)
        output.SignalAsyncStoppedCallback();  // before the thread exists
    output.Initialize(1);
    for (int i = 0; i < 47; ++i)
        output.SignalAsyncStoppedCallback();
    EXPECT_TRUE(stopped.WaitFor(100));
    EXPECT_EQ(onOtherThreads, 0);
}

TEST(OutputHandshake, AnOutputIsDestroyedAtAnyMomentWhileTheClockRuns) {
    OutputRig rig(Delivery::kThread);
    rig.output.reset();
    ExceptionCapture log;
    rig.fill = [](MidiBuffer& buffer, int cycle) {
        if (cycle == 40)
            buffer.SetIsLastBuffer(true);
    };
    constexpr unsigned int kSeed = 20'240'611;
    std::mt19937 random(kSeed);
    RunningClock clock(rig.clock);
    rig.CreateOutput();  // never initialised: there is no ring and no thread to end
    int notArmed = 0;
    for (int round = 0; round < 1000; ++round)
        MustEnd("destruction while the clock runs", [&] {
            rig.output = rig.CreateOutput();
            rig.output->Initialize(OutputRig::kPorts);
            if (round % 2 == 0)
                rig.output->CreateSynthOutput("");
            if (round % 5 != 0)
                notArmed += !rig.Start();
            std::thread stop;
            if (round % 3 == 0)
                stop = std::thread([&] { rig.output->DisarmPlayback(); });
            const int clocks = static_cast<int>(random() % 60);
            for (int i = 0; i < clocks; ++i)
                std::this_thread::yield();
            if (stop.joinable())
                stop.join();
            if (round % 7 == 0)
                rig.output->PrepareForExit();
            rig.output.reset();
        });
    EXPECT_EQ(notArmed, 0) << "seed " << kSeed;
    EXPECT_THAT(log.Take(), IsEmpty()) << "seed " << kSeed;
    EXPECT_EQ(win32_layer::Layer::Instance().GetCounters().openStreams, 0);
    EXPECT_EQ(win32_layer::Layer::Instance().GetCounters().preparedHeaders, 0);
}

}  // namespace
