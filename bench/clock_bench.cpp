// How regular is the engine's MIDI clock next to a bare absolute-sleep loop, what does one clock with 16 busy tracks
// cost the clock thread, and how much faster than real time does it play offline?
//   clock_bench [SECONDS [RUNS]]        60 seconds of engine for each run, and as much of the bare loop around it
//   clock_bench SECONDS RUNS UNPLUGS    only this: does unplugging the device so often in each run, and plugging it in
//                                       again, make clocks late? Status 1 if at more than one in ten.
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "player/playback_feed.h"
#include "player/playback_host.h"
#include "player/show.h"
#include "vemo_core/song_builder.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace {

thread_local std::size_t allocations = 0;

void* Allocate(std::size_t size, std::size_t alignment) {
    ++allocations;
    void* const block = std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (!block)
        throw std::bad_alloc();
    return block;
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(std::max<std::size_t>(size, 1), __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return Allocate(std::max<std::size_t>(size, 1), static_cast<std::size_t>(alignment));
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}

namespace {

using namespace std::chrono_literals;
using player::PlaybackFeed;
using player::PlaybackHost;
using player::PlaybackRecord;
using win32_layer::Layer;
using Steady = std::chrono::steady_clock;

constexpr unsigned short kTracks = 16;
constexpr unsigned short kResolution = 96;
constexpr unsigned kTicksPerClock = kResolution / 24;
constexpr double kTempo = 120;
constexpr double kClockSeconds = 60 / kTempo / 24;
/// Of the unplugs: what holds up a clock by less than a clock's length makes none late.
constexpr double kFastTempo = 300;
constexpr std::uint64_t kWarmUpClocks = 500;
constexpr std::uint64_t kMeasuredClocks = 5'000;
constexpr double kOfflineMinutes = 10;
constexpr double kLateMilliseconds = 5;

/// Sixteenths and a controller every third clock on every track: about 11 messages
/// a clock.
std::shared_ptr<const player::Show> BusyShow(double seconds, double tempo) {
    const auto clocks = static_cast<unsigned>(seconds * tempo / 60 * 24);
    SongBuilder builder(kResolution);
    for (unsigned short id = 0; id < kTracks; ++id) {
        std::vector<vemo_midi::VoiceEvent> events;
        for (unsigned clock = 0; clock + 6 < clocks; clock += 3) {
            const unsigned tick = clock * kTicksPerClock;
            const auto note = static_cast<unsigned char>(36 + (clock / 6 + id) % 48);
            events.emplace_back(tick, 0xB0, id, 1, static_cast<unsigned char>(clock % 128));
            if (clock % 6 != 0)
                continue;
            events.emplace_back(tick, 0x90, id, note, 90);
            events.emplace_back(tick + 5 * kTicksPerClock, 0x80, id, note, 64);
        }
        builder.Track(id, "track", 0, 127, 0, std::move(events));
    }
    builder.Tempo(0, tempo).EndAt(clocks * kTicksPerClock);
    player::ShowSong song;
    song.key = "busy";
    song.song = std::make_shared<const player::ImportedSong>(
        player::ImportedSong{builder.BuildSong(), builder.BuildLog(), "busy", {}});
    return std::make_shared<const player::Show>(player::ShowDocument(), "", std::vector{song});
}

void Play(PlaybackHost& host, double seconds, double tempo = kTempo) {
    const auto show = BusyShow(seconds, tempo);
    host.SetShow(show);
    player::SongToPlay song;
    song.song = show->GetSongs().front().song;
    song.key = "busy";
    host.Load(std::move(song));
    host.Play(0);
}

double Milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

double Quantile(std::vector<double>& sorted, double share) {
    return sorted.empty() ? 0 : sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

/// Sizes, without their signs.
struct Spread {
    double median, high, worst;
    explicit Spread(std::vector<double> values) {
        for (double& value : values)
            value = std::abs(value);
        std::sort(values.begin(), values.end());
        median = Quantile(values, 0.5);
        high = Quantile(values, 0.99);
        worst = Quantile(values, 1);
    }
    std::string Text() const {
        char text[100];
        std::snprintf(text, sizeof(text), "median %7.3f ms, 99th percentile %7.3f ms, worst %7.3f ms", median, high,
                      worst);
        return text;
    }
};

/// When clocks came, against when they should have.
struct Times {
    std::vector<double> intervals;  // errors, milliseconds
    std::vector<double> wander;     // distances from the ideal times, milliseconds
    void Add(std::chrono::nanoseconds time, double secondsToNext) {
        if (previous_) {
            intervals.push_back(Milliseconds(time - *previous_) - length_ * 1e3);
            ideal_ += length_ * 1e3;
            wander.push_back(Milliseconds(time - first_) - ideal_);
        } else {
            first_ = time;
        }
        previous_ = time;
        length_ = secondsToNext;
    }
    void Append(const Times& other) {
        intervals.insert(intervals.end(), other.intervals.begin(), other.intervals.end());
        wander.insert(wander.end(), other.wander.begin(), other.wander.end());
    }
    double Drift() const { return wander.empty() ? 0 : wander.back(); }

private:
    std::optional<std::chrono::nanoseconds> previous_;
    std::chrono::nanoseconds first_{0};
    double ideal_ = 0;
    double length_ = 0;
};

Times BareLoop(double seconds) {
    Times times;
    std::thread loop([&] {
        Layer::GiveTimerPriority();
        const auto start = Steady::now();
        for (int clock = 0; clock * kClockSeconds < seconds; ++clock) {
            std::this_thread::sleep_until(
                start + std::chrono::nanoseconds(static_cast<std::int64_t>(clock * kClockSeconds * 1e9)));
            times.Add(Steady::now().time_since_epoch(), kClockSeconds);
        }
    });
    loop.join();
    return times;
}

/// Waits for the end of a song.
class Ending {
public:
    void Notify() {
        std::lock_guard lock(mutex_);
        ended_ = true;
        changed_.notify_all();
    }
    void Wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return ended_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool ended_ = false;
};

/// Away for half of the time; back, it is given the whole state, as the player does.
void Unplug(PlaybackHost& host, double seconds, int times) {
    const auto device = Layer::Instance().GetOutputs().front();
    const std::chrono::duration<double> step(seconds / (2 * times + 1));
    for (int time = 0; time < times; ++time) {
        std::this_thread::sleep_for(step);
        Layer::Instance().RemoveOutput(device);
        host.NoteOutputLoss();
        std::this_thread::sleep_for(step);
        Layer::Instance().AddOutput(device);
        host.NoteOutputReturn();
    }
}

std::vector<PlaybackRecord> Engine(double seconds, int unplugs) {
    PlaybackFeed feed;
    const auto records = feed.Subscribe();
    Ending ending;
    {
        PlaybackHost host({"", {}, nullptr, [&](std::uint64_t) { ending.Notify(); }, {}}, feed);
        Play(host, seconds, unplugs > 0 ? kFastTempo : kTempo);
        std::thread unplugging([&] { Unplug(host, seconds, unplugs); });
        ending.Wait();
        unplugging.join();
        host.FinishSong();
    }
    feed.Close();
    std::vector<PlaybackRecord> clocks;
    while (const auto record = records->Next())
        if (record->kind == PlaybackRecord::Kind::kClock)
            clocks.push_back(*record);
    return clocks;
}

Times TimesOf(const std::vector<PlaybackRecord>& clocks) {
    Times times;
    for (const PlaybackRecord& clock : clocks)
        times.Add(clock.time, clock.clockSeconds);
    return times;
}

/// One on each processor, each asleep for a millisecond at a time: what makes these late is the machine.
class BareThreads {
public:
    BareThreads() {
        cpu_set_t processors;
        sched_getaffinity(0, sizeof(processors), &processors);
        for (int processor = 0; processor < CPU_SETSIZE; ++processor)
            if (CPU_ISSET(processor, &processors))
                waits_.emplace_back();
        auto waits = waits_.begin();
        for (int processor = 0; processor < CPU_SETSIZE; ++processor)
            if (CPU_ISSET(processor, &processors))
                threads_.emplace_back([this, processor, &own = *waits++] { Run(processor, own); });
    }
    ~BareThreads() { End(); }
    BareThreads(const BareThreads&) = delete;
    BareThreads& operator=(const BareThreads&) = delete;

    void End() {
        isOver_ = true;
        for (std::thread& thread : std::exchange(threads_, {}))
            thread.join();
    }
    /// The longest that one of them wanted to run, and did not, of what overlaps that span. Behind End().
    std::chrono::nanoseconds LongestWait(std::chrono::nanoseconds from, std::chrono::nanoseconds to) const {
        std::chrono::nanoseconds longest{0};
        for (const auto& waits : waits_)
            for (const auto& [due, came] : waits)
                if (due <= to && came >= from)
                    longest = std::max(longest, came - due);
        return longest;
    }

private:
    using Waits = std::vector<std::pair<std::chrono::nanoseconds, std::chrono::nanoseconds>>;  // due, and came

    void Run(int processor, Waits& waits) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
        // Of ordinary priority, as the threads that share locks with the clock are.
        for (auto due = Steady::now() + 1ms; !isOver_;) {
            std::this_thread::sleep_until(due);
            const auto came = Steady::now();
            if (came - due > kWorthKeeping)
                waits.emplace_back(due.time_since_epoch(), came.time_since_epoch());
            due = std::max(due, came) + 1ms;
        }
    }

    static constexpr auto kWorthKeeping = 500us;

    std::atomic<bool> isOver_{false};
    std::vector<Waits> waits_;  // of each thread its own; nobody else's until End()
    std::vector<std::thread> threads_;
};

/// Machines are shared and stall: of a clock's lateness, what a bare thread had to wait at the same time is the
/// machine's. Only a clock that is more than 5 ms later than that is the engine's, and late.
bool UnplugsMakeClocksLate(double seconds, int runs, int unplugs) {
    std::size_t clocks = 0, late = 0, lateWithMachine = 0;
    for (int run = 0; run < runs; ++run) {
        BareThreads bare;
        const auto heard = Engine(seconds, unplugs);
        bare.End();
        clocks += heard.size();
        for (std::size_t i = 1; i < heard.size(); ++i) {
            const auto interval = heard[i].time - heard[i - 1].time;
            const double error = Milliseconds(interval) - heard[i - 1].clockSeconds * 1e3;
            if (error <= kLateMilliseconds)
                continue;
            const double wait = Milliseconds(bare.LongestWait(heard[i - 1].time, heard[i].time));
            ++(error - wait > kLateMilliseconds ? late : lateWithMachine);
        }
    }
    std::printf(
        "measured: %d unplugs, %zu clocks: %zu more than %.0f ms later than bare threads that slept at the same "
        "time; %zu more late because those were\n",
        runs * unplugs, clocks, late, kLateMilliseconds, lateWithMachine);
    // What unplugging does, it does at most of them; a few may still be a stall that hit the clock alone.
    const double wanted = runs * seconds * kFastTempo / 60 * 24;
    return late * 10 > static_cast<std::size_t>(runs * unplugs) || static_cast<double>(clocks) < 0.9 * wanted;
}

/// From one call of the host before a clock to the next lies that clock, whole, on
/// the clock's own thread.
void MeasureOneClock() {
    PlaybackFeed feed;
    Ending ending;
    PlaybackHost* playing = nullptr;
    std::vector<double> micros;
    micros.reserve(kMeasuredClocks);
    std::uint64_t clocks = 0;
    std::size_t before = 0;
    std::size_t counted = 0;
    Steady::time_point start;
    const auto hook = [&] {
        const auto end = Steady::now();
        if (++clocks > kWarmUpClocks + 1 && micros.size() < kMeasuredClocks) {
            counted += allocations - before;
            micros.push_back(std::chrono::duration<double, std::micro>(end - start).count());
        }
        playing->WaitForFills(4, 5s);
        std::this_thread::sleep_for(100us);  // the device has returned its buffers by then, as in real time
        before = allocations;
        start = Steady::now();
    };
    {
        PlaybackHost host({"", hook, nullptr, [&](std::uint64_t) { ending.Notify(); }, {}}, feed);
        playing = &host;
        Play(host, static_cast<double>(kWarmUpClocks + kMeasuredClocks + 100) * kClockSeconds);
        ending.Wait();
        host.FinishSong();
    }
    std::sort(micros.begin(), micros.end());
    std::printf(
        "one clock, 16 busy tracks: median %.1f us (quartiles %.1f to %.1f), 99th percentile %.1f us, worst "
        "%.1f us; %zu allocations on the clock thread in %zu clocks\n",
        Quantile(micros, 0.5), Quantile(micros, 0.25), Quantile(micros, 0.75), Quantile(micros, 0.99),
        Quantile(micros, 1), counted, micros.size());
}

double OfflineSpeed() {
    PlaybackFeed feed;
    Ending ending;
    PlaybackHost* playing = nullptr;
    PlaybackHost host({"", [&] { playing->WaitForFills(1, 5s); }, nullptr, [&](std::uint64_t) { ending.Notify(); }, {}},
                      feed);
    playing = &host;
    Layer::Instance().SetDelivery(win32_layer::Delivery::kInline);
    Layer::Instance().SetTimeSource([&] { return playing->GetTime(); });
    const auto start = Steady::now();
    Play(host, kOfflineMinutes * 60);
    ending.Wait();
    const auto spent = Steady::now() - start;
    host.FinishSong();
    const auto played = host.GetTime();
    Layer::Instance().SetDelivery(win32_layer::Delivery::kThread);
    Layer::Instance().SetTimeSource({});
    return Milliseconds(played) / Milliseconds(spent);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return Quantile(values, 0.5);
}

}  // namespace

int main(int count, char** arguments) {
    const double seconds = count > 1 ? std::strtod(arguments[1], nullptr) : 60;
    const int runs = count > 2 ? std::atoi(arguments[2]) : 1;
    const int unplugs = count > 3 ? std::atoi(arguments[3]) : 0;
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
        L"Bench", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));

    if (unplugs > 0) {
        const bool areLate = UnplugsMakeClocksLate(seconds, runs, unplugs);
        Layer::Instance().Reset();
        return areLate ? 1 : 0;
    }
    Times engine, bare;
    std::vector<double> drifts, bareDrifts;
    for (int run = 0; run < runs; ++run) {
        for (const bool isBare : {true, false, true}) {
            const Times times = isBare ? BareLoop(seconds / 2) : TimesOf(Engine(seconds, 0));
            (isBare ? bare : engine).Append(times);
            (isBare ? bareDrifts : drifts).push_back(std::abs(times.Drift()));
        }
    }
    const auto countLate = [](const std::vector<double>& errors) {
        return std::count_if(errors.begin(), errors.end(), [](double error) { return error > kLateMilliseconds; });
    };
    const Spread engineIntervals(engine.intervals), bareIntervals(bare.intervals);
    std::printf("%d runs of %.0f s, clocks of %.3f ms\n", runs, seconds, kClockSeconds * 1e3);
    std::printf("error of intervals,   engine: %s\n", engineIntervals.Text().c_str());
    std::printf("                   bare loop: %s\n", bareIntervals.Text().c_str());
    std::printf("more than %.0f ms late:  engine: %td of %zu; bare loop: %td of %zu\n", kLateMilliseconds,
                countLate(engine.intervals), engine.intervals.size(), countLate(bare.intervals), bare.intervals.size());
    std::printf("from ideal times,     engine: %s\n", Spread(engine.wander).Text().c_str());
    std::printf("                   bare loop: %s\n", Spread(bare.wander).Text().c_str());
    std::printf("drift, median of %zu,  engine: %.3f ms; bare loop: %.3f ms\n", drifts.size(), Median(drifts),
                Median(bareDrifts));
    const double allowed = 2 * bareIntervals.high + 1;
    std::printf("aim: 99th percentile within %.3f ms (twice the bare loop's and 1 ms): %s\n", allowed,
                engineIntervals.high <= allowed ? "kept" : "MISSED");
    MeasureOneClock();
    std::vector<double> speeds;
    for (int run = 0; run < 5; ++run)
        speeds.push_back(OfflineSpeed());
    std::printf("offline, 16 busy tracks: %.0f times real time, median of 5 (best %.0f); aim 500\n", Median(speeds),
                *std::max_element(speeds.begin(), speeds.end()));
    Layer::Instance().Reset();
    return 0;
}
