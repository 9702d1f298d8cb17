// What the chase snapshots of a long song cost: the memory and the time of building
// its stream, as a multiple of the least there is, copying the song; whether both
// grow with the song and no faster; and what a seek costs, wherever it goes.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "midi/quorvel_midi_stream.h"
#include "vemo_core/song_builder.h"

namespace {

std::size_t bytesHeld = 0;  // one thread

}  // namespace

void* operator new(std::size_t size) {
    void* const block = std::malloc(size);
    if (!block)
        throw std::bad_alloc();
    bytesHeld += malloc_usable_size(block);
    return block;
}
void operator delete(void* block) noexcept {
    bytesHeld -= malloc_usable_size(block);
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

namespace {

using Clock = std::chrono::steady_clock;
using vemo_midi::VoiceEvent;

constexpr unsigned kTracks = 60;
constexpr unsigned kBeats = 2'000;
constexpr unsigned short kResolution = 960;
constexpr unsigned kControllers = 8;
constexpr unsigned kHeldNotes = 3;
constexpr int kRounds = 15;
constexpr double kMostMegabytes = 40;
constexpr double kMostSeconds = 0.5;

/// Each track sets its controllers and holds its notes from the first beats on;
/// from then on each beat changes one of them.
vemo_midi::SongData Song(unsigned beats) {
    SongBuilder song(kResolution);
    for (unsigned short id = 0; id < kTracks; ++id) {
        std::vector<VoiceEvent> events;
        for (unsigned beat = 0; beat < beats; ++beat) {
            const std::uint32_t tick = beat * kResolution + id;
            const auto turn = static_cast<unsigned char>(beat % (kControllers + kHeldNotes));
            const auto value = static_cast<unsigned char>(beat % 128);
            if (turn < kControllers)
                events.emplace_back(tick, 0xB0, id, turn, value);
            else
                events.emplace_back(tick, 0x90, id, 60 + turn, value);
        }
        song.Track(id, "track", 0, 127, 0, std::move(events));
    }
    return song.EndAt(beats * kResolution).BuildSong();
}

double Seconds(auto&& body) {
    const auto start = Clock::now();
    body();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Quartiles {
    double low, median, high;
};

Quartiles Sorted(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 4], samples[samples.size() / 2], samples[samples.size() * 3 / 4]};
}

struct Cost {
    double megabytes;
    Quartiles seconds;
};

template <class Make>
Cost CostOf(Make&& make) {
    std::vector<double> seconds;
    double megabytes = 0;
    for (int round = 0; round < kRounds; ++round) {
        const std::size_t before = bytesHeld;
        decltype(make()) made;
        seconds.push_back(Seconds([&] { made = make(); }));
        megabytes = static_cast<double>(bytesHeld - before) / 1e6;
    }
    return {megabytes, Sorted(std::move(seconds))};
}

}  // namespace

int main() {
    // Freed memory stays with the process, as in a show that loads song after song:
    // what is measured is the stream and not the kernel taking pages back.
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    bool withinBudget = false;
    for (const unsigned beats : {kBeats / 2, kBeats, kBeats * 2}) {
        const auto song = Song(beats);
        const Cost floor = CostOf([&] { return std::make_unique<vemo_midi::SongData>(song); });
        const Cost stream = CostOf([&] { return std::make_unique<QuorvelMidiStream>(song); });
        std::printf(
            "%u tracks x %4u beats: %6.2f MB (x%.1f of the song), %6.1f ms (x%.1f; quartiles %.1f to %.1f ms)\n",
            kTracks, beats, stream.megabytes, stream.megabytes / floor.megabytes, stream.seconds.median * 1e3,
            stream.seconds.median / floor.seconds.median, stream.seconds.low * 1e3, stream.seconds.high * 1e3);
        if (beats == kBeats)
            withinBudget = stream.megabytes < kMostMegabytes && stream.seconds.high < kMostSeconds;
    }
    std::printf("budget for %u beats: %.0f MB and %.1f s: %s\n", kBeats, kMostMegabytes, kMostSeconds,
                withinBudget ? "kept" : "EXCEEDED");

    QuorvelMidiStream stream(Song(kBeats));
    for (const auto& [where, beat] : {std::pair{"start", 20u}, {"middle", kBeats / 2}, {"end", kBeats - 2}}) {
        std::vector<double> micros;
        for (unsigned round = 0; round < 200; ++round)
            micros.push_back(1e6 * Seconds([&] { stream.Seek(beat * kResolution + round * 4); }));
        const auto [low, median, high] = Sorted(std::move(micros));
        std::printf("seek to the %-6s: %5.0f us (quartiles %.0f to %.0f us)\n", where, median, low, high);
    }
    return withinBudget ? EXIT_SUCCESS : EXIT_FAILURE;
}
