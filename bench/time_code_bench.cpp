// How late do the pieces of a time code leave against their due times, next to a thread that only sleeps until it is
// due, and how far from an even grid does the scheme itself put them?
//   time_code_bench [SECONDS]   300 seconds of play at 120 beats a minute and 30 frames a second
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "midi/midi_time_code.h"
#include "midi/win32/standard_midi_clock_impl.h"
#include "player/time_code_sender.h"
#include "win32_layer/layer.h"
#include "win32_layer/midi_output_device.h"

namespace {

using Steady = std::chrono::steady_clock;
using win32_layer::Layer;

constexpr double kClockSeconds = 60.0 / 120 / 24;
constexpr double kPieceSeconds = 1.0 / 120;
constexpr double kAimMilliseconds = 2;

double Now() {
    return std::chrono::duration<double>(Steady::now().time_since_epoch()).count();
}

/// Pieces by their due times: the call of their span, and so many parts of it later.
std::vector<double> DueTimes(const std::vector<double>& calls) {
    std::vector<double> due;
    MidiTimeCode place(player::TimeCodeSender::kBorderSeconds, FrameRate::k30);
    for (std::size_t clock = 0; clock < calls.size(); ++clock) {
        const MidiTimeCode end(static_cast<double>(clock + 1) * kClockSeconds + player::TimeCodeSender::kBorderSeconds,
                               FrameRate::k30);
        const std::uint64_t count = place < end ? end.GetDifferenceAsQuarterFrameCount(place) : 0;
        for (std::uint64_t piece = 0; piece < count; ++piece)
            due.push_back(calls[clock] + static_cast<double>(piece) * kClockSeconds / static_cast<double>(count));
        if (count > 0)
            place = end;
    }
    return due;
}

/// Where the pieces leave the machine; the full frame at the beginning is none.
class Desk : public win32_layer::MidiOutputDevice {
public:
    std::wstring GetName() const override { return L"Desk"; }
    std::string GetIdentity() const override { return "Desk"; }
    bool Open() override { return true; }
    void Close() override {}
    void Play(const std::uint8_t* bytes, std::size_t, std::chrono::nanoseconds) override {
        if (bytes[0] == 0xF1)
            arrived.push_back(Now());
    }

    std::vector<double> arrived;  // read once the port is closed
};

double Print(const char* what, std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    const auto quantile = [&](double share) {
        return 1e3 * seconds[static_cast<std::size_t>(share * static_cast<double>(seconds.size() - 1))];
    };
    std::printf("%-54s median %7.3f ms, 99th percentile %7.3f ms, worst %7.3f ms\n", what, quantile(0.5),
                quantile(0.99), quantile(1));
    return quantile(0.99);
}

std::vector<double> SleepBarely(double seconds, const std::atomic<bool>& stop) {
    Layer::GiveTimerPriority();
    std::vector<double> late;
    const auto start = Steady::now();
    for (int piece = 1; piece * kPieceSeconds < seconds && !stop; ++piece) {
        const auto due =
            start + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(piece * kPieceSeconds));
        std::this_thread::sleep_until(due);
        late.push_back(std::chrono::duration<double>(Steady::now() - due).count());
    }
    return late;
}

}  // namespace

int main(int count, char** arguments) {
    const double seconds = std::max(2.0, count > 1 ? std::atof(arguments[1]) : 300.0);
    std::vector<double> calls, bare;
    const auto desk = std::make_shared<Desk>();
    Layer::Instance().AddOutput(desk);
    calls.reserve(static_cast<std::size_t>(seconds / kClockSeconds) + 100);
    std::mutex mutex;
    std::condition_variable changed;
    bool isOver = false;  // guarded by mutex
    {
        player::TimeCodeSender sender({FrameRate::k30, {}, {}, {}});
        sender.SetOutputPortIndex(0);
        sender.SetActive(true);
        const auto clocks = static_cast<std::size_t>(seconds / kClockSeconds);
        StandardMidiClockImpl clock;
        clock.SetMidiClockCallback([&](double) {
            const std::size_t number = calls.size();
            if (number >= clocks)
                return;
            calls.push_back(Now());
            sender.Play(static_cast<double>(number) * kClockSeconds, static_cast<double>(number + 1) * kClockSeconds,
                        kClockSeconds);
            if (calls.size() == clocks) {
                const std::lock_guard lock(mutex);
                isOver = true;
                changed.notify_all();
            }
        });
        std::atomic<bool> stop{false};
        std::thread sleeper([&] { bare = SleepBarely(seconds, stop); });
        clock.ArmPlayback(1, 24, kClockSeconds, 0, 0);
        clock.ContinuousMode();
        {
            std::unique_lock lock(mutex);
            changed.wait_for(lock, std::chrono::duration<double>(seconds * 1.5), [&] { return isOver; });
        }
        clock.DisarmPlayback();
        clock.WaitForClocksInFlight();
        stop = true;
        sleeper.join();
        sender.SetActive(false);
    }
    const std::vector<double> due = DueTimes(calls);
    const std::vector<double>& sent = desk->arrived;
    const std::size_t pieces = std::min(due.size(), sent.size());
    if (pieces < 100 || due.size() - pieces > 3) {
        std::printf("only %zu of %zu pieces left\n", sent.size(), due.size());
        return 1;
    }
    std::vector<double> late, grid;
    for (std::size_t piece = 0; piece < pieces; ++piece) {
        late.push_back(std::abs(sent[piece] - due[piece]));
        grid.push_back(std::abs(sent[piece] - sent[0] - static_cast<double>(piece) * kPieceSeconds));
    }
    std::printf("%zu pieces in %.0f s\n", pieces, sent[pieces - 1] - sent[0]);
    const double high = Print("a piece from its due time:", late);
    Print("a bare thread that sleeps until it is due:", bare);
    Print("a piece from an even grid:", grid);
    // Over the run, first against last tenth: what adds up shows here.
    const auto drift = [](std::size_t size, const auto& lateness) {
        const auto mean = [&](std::size_t from, std::size_t to) {
            double sum = 0;
            for (std::size_t i = from; i < to; ++i)
                sum += lateness(i);
            return sum / static_cast<double>(to - from);
        };
        return 1e3 * (mean(size * 9 / 10, size) - mean(0, size / 10));
    };
    std::printf("drift of the pieces against the clocks that they belong to: %.3f ms over the run\n",
                drift(pieces, [&](std::size_t piece) { return sent[piece] - due[piece]; }));
    std::printf(
        "drift of the MIDI clock against the steady clock: %.3f ms over the run\n",
        drift(calls.size(), [&](std::size_t call) { return calls[call] - static_cast<double>(call) * kClockSeconds; }));
    std::printf("aim at the 99th percentile on an idle machine %.0f ms: %s\n", kAimMilliseconds,
                high <= kAimMilliseconds ? "kept" : "MISSED");
    Layer::Instance().Reset();
    return 0;
}
