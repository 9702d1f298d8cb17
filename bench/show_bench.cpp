// Whether a whole show is there when it is wanted: how soon its first song can play and
// its last one is loaded, as a multiple of the least there is, copying the songs; what
// it takes of memory; and how long a show that is closed while it loads keeps its host.
#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "midi/ambrel_midi_stream_collection.h"
#include "midi/quorvel_midi_stream.h"
#include "midi/quorvel_midi_stream_collection.h"
#include "vemo_core/ambrel_show_data.h"
#include "vemo_core/song_builder.h"

namespace {

using Clock = std::chrono::steady_clock;
using vemo_midi::VoiceEvent;

constexpr int kSongs = 100;
constexpr unsigned kTracks = 32;
constexpr unsigned kBeats = 600;
constexpr unsigned kEventsPerSong = 20'000;
constexpr unsigned short kResolution = 960;
constexpr int kRounds = 15;
constexpr double kMostSeconds = 5;
constexpr double kMostMegabytes = 400;
constexpr double kMostFirstSeconds = 0.1;
// A song's time, and what waking up the thread that waits may cost on a busy machine.
constexpr double kMostCloseSlack = 0.02;

/// Notes that overlap the beats, a controller here and there; no two songs alike.
vemo_midi::SongData Song(int number) {
    constexpr unsigned kEvents = kEventsPerSong / kTracks;
    SongBuilder song(kResolution);
    for (unsigned short id = 0; id < kTracks; ++id) {
        std::vector<VoiceEvent> events;
        for (unsigned i = 0; i < kEvents; ++i) {
            const unsigned tick = i * (kBeats * kResolution / kEvents) + id;
            const auto note = static_cast<unsigned char>((i / 2 + static_cast<unsigned>(number)) % 128);
            if (i % 10 == 9)
                events.emplace_back(tick, 0xB0, id, i % 16, i % 128);
            else
                events.emplace_back(tick, i % 2 == 0 ? 0x90 : 0x80, id, note, 64);
        }
        song.Track(id, "track", 0, 127, 0, std::move(events));
    }
    return song.EndAt(kBeats * kResolution).BuildSong();
}

std::string Key(int number) {
    return "song " + std::to_string(number);
}

double Seconds(auto&& body) {
    const auto start = Clock::now();
    body();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Of the whole process, in whichever of its threads: nothing is counted while it loads.
double MegabytesHeld() {
    const auto held = mallinfo2();
    return static_cast<double>(held.uordblks + held.hblkhd) / 1e6;
}

struct Quartiles {
    double low, median, high;
};

Quartiles Sorted(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 4], samples[samples.size() / 2], samples[samples.size() * 3 / 4]};
}

void Print(const char* what, const Quartiles& seconds, const std::string& comparison) {
    std::printf("%-34s %8.2f ms (quartiles %.2f to %.2f ms)%s\n", what, seconds.median * 1e3, seconds.low * 1e3,
                seconds.high * 1e3, comparison.c_str());
}

std::string Times(double value, double floor, const char* of) {
    char text[80];
    std::snprintf(text, sizeof text, ", x%.1f of %s", value / floor, of);
    return text;
}

/// Prints what a form costs; whether it keeps the budget.
template <class Collection>
bool Measure(const char* form, const ambrel::AmbrelShowData& show, double songSeconds) {
    std::vector<double> copy, first, all, close;
    double megabytes = 0;
    for (int round = 0; round < kRounds; ++round) {
        {
            std::optional<ambrel::AmbrelShowData> copied;
            copy.push_back(Seconds([&] { copied.emplace(show); }));
        }
        {
            const double before = MegabytesHeld();
            const auto start = Clock::now();
            const auto sinceStart = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
            Collection collection(show);
            collection.GetStream(Key(0));
            first.push_back(sinceStart());
            collection.GetStream(Key(kSongs - 1));
            all.push_back(sinceStart());
            megabytes = MegabytesHeld() - before;
        }
        std::optional<Collection> closed(show);
        closed->GetStream(Key(round % 5));
        close.push_back(Seconds([&] { closed.reset(); }));
    }
    const double copySeconds = Sorted(copy).median;
    const double worstFirst = *std::ranges::max_element(first);
    const double worstAll = *std::ranges::max_element(all);
    const double worstClose = *std::ranges::max_element(close);
    std::printf("%s: %d songs of %u tracks, %u beats, %u events\n", form, kSongs, kTracks, kBeats, kEventsPerSong);
    Print("  first song ready", Sorted(first), Times(Sorted(first).median, songSeconds, "building one song"));
    Print("  all songs loaded", Sorted(all), Times(Sorted(all).median, copySeconds, "copying the show"));
    Print("  closed while loading", Sorted(close), Times(Sorted(close).median, songSeconds, "building one song"));
    std::printf("  worst: first %.2f ms, all %.2f ms, closed %.2f ms; streams hold %.1f MB\n", worstFirst * 1e3,
                worstAll * 1e3, worstClose * 1e3, megabytes);
    return worstFirst < kMostFirstSeconds && worstAll < kMostSeconds && megabytes < kMostMegabytes &&
           worstClose < songSeconds + kMostCloseSlack;
}

}  // namespace

int main() {
    ambrel::AmbrelShowData show;
    std::vector<double> build;
    for (int number = 0; number < kSongs; ++number) {
        std::optional<vemo_midi::SongData> song;
        build.push_back(Seconds([&] { song = Song(number); }));
        show.Add(Key(number), *std::move(song));
    }
    Print("a song's data built", Sorted(build), "");

    std::vector<double> one;
    for (int round = 0; round < kRounds; ++round)
        one.push_back(Seconds([&] { QuorvelMidiStream stream(show.at(Key(round))); }));
    Print("a song's stream built", Sorted(one), "");

    bool kept = Measure<QuorvelMidiStreamCollection>("Quorvel", show, Sorted(one).median);
    kept = Measure<AmbrelMidiStreamCollection>("Ambrel", show, Sorted(one).median) && kept;

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double peak = static_cast<double>(usage.ru_maxrss) * 1024 / 1e6;
    kept = kept && peak < kMostMegabytes;
    std::printf("the whole process at its most: %.1f MB\n", peak);
    std::printf("budget of %.0f s, %.0f MB, the first within %.0f ms, closed within a song: %s\n", kMostSeconds,
                kMostMegabytes, kMostFirstSeconds * 1e3, kept ? "kept" : "EXCEEDED");
    return kept ? EXIT_SUCCESS : EXIT_FAILURE;
}
