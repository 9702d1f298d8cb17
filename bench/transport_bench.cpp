// How long after a key does the device hear something?
//   transport_bench [ROUNDS]   play to the first byte, and a panic, in real time
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "player/current_show.h"
#include "player/playback_feed.h"
#include "player/transport.h"
#include "vemo_core/song_builder.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;
using player::ParseCommand;
using win32_layer::Layer;

constexpr unsigned kResolution = 96;
constexpr unsigned kTracks = 16;
constexpr unsigned kBars = 400;

std::shared_ptr<const player::Show> BusyShow() {
    SongBuilder builder(kResolution);
    for (unsigned short id = 0; id < kTracks; ++id) {
        std::vector<vemo_midi::VoiceEvent> events;
        for (unsigned step = 0; step < kBars * 16; ++step) {
            const unsigned tick = step * kResolution / 4;
            events.emplace_back(tick, 0xB0, id, 1, static_cast<unsigned char>(step % 128));
            events.emplace_back(tick, 0x90, id, static_cast<unsigned char>(40 + step % 40), 90);
            events.emplace_back(tick + kResolution / 8, 0x80, id, static_cast<unsigned char>(40 + step % 40), 64);
        }
        builder.Track(id, "track", 0, 127, 0, std::move(events));
    }
    builder.EndAt(kBars * 4 * kResolution);
    player::ShowSong song;
    song.key = "busy";
    song.song = std::make_shared<const player::ImportedSong>(
        player::ImportedSong{builder.BuildSong(), builder.BuildLog(), "busy", {}});
    player::ShowDocument document;
    document.setList.push_back({"busy", player::AfterSong::kStop});
    return std::make_shared<const player::Show>(std::move(document), "", std::vector{song});
}

/// Waits for the first byte that leaves after Expect().
class FirstByte {
public:
    void Expect() {
        std::lock_guard lock(mutex_);
        time_.reset();
    }
    void Take() {
        const auto now = Steady::now();
        std::lock_guard lock(mutex_);
        if (time_)
            return;
        time_ = now;
        came_.notify_all();
    }
    std::optional<Steady::time_point> Wait() {
        std::unique_lock lock(mutex_);
        came_.wait_for(lock, 5s, [this] { return time_.has_value(); });
        return time_;
    }

private:
    std::mutex mutex_;
    std::condition_variable came_;
    std::optional<Steady::time_point> time_ = Steady::time_point();
};

void Print(const char* what, std::vector<double> milliseconds, double aim) {
    std::sort(milliseconds.begin(), milliseconds.end());
    const auto quantile = [&](double share) {
        return milliseconds[static_cast<std::size_t>(share * static_cast<double>(milliseconds.size() - 1))];
    };
    std::printf("%s: median %.2f ms, 99th percentile %.2f ms, worst %.2f ms; aim %.0f ms: %s\n", what, quantile(0.5),
                quantile(0.99), quantile(1), aim, quantile(0.99) <= aim ? "kept" : "MISSED");
}

double Milliseconds(Steady::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

int main(int count, char** arguments) {
    const int rounds = std::max(1, count > 1 ? std::atoi(arguments[1]) : 200);
    FirstByte first;
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
        L"Bench", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
    Layer::Instance().SetObserver([&](const std::uint8_t*, std::size_t, auto) { first.Take(); });
    std::vector<double> plays, panics;
    {
        player::PlaybackFeed feed;
        player::CurrentShow current;
        player::Transport::Settings settings;
        settings.show = BusyShow();
        player::Transport transport(settings, current, feed);
        for (int round = 0; round < rounds; ++round) {
            const std::string bar = std::to_string(1 + round % static_cast<int>(kBars - 8));
            transport.Post(ParseCommand("locate " + bar)).get();
            first.Expect();
            auto start = Steady::now();
            transport.Post(ParseCommand("play")).get();
            if (const auto heard = first.Wait())
                plays.push_back(Milliseconds(*heard - start));
            std::this_thread::sleep_for(40ms);
            start = Steady::now();
            transport.Post(ParseCommand("panic")).get();  // answered when all of it was handed to the device
            panics.push_back(Milliseconds(Steady::now() - start));
            transport.Post(ParseCommand("stop")).get();
        }
    }
    Print("play to the first byte, 16 busy tracks", plays, 10);
    Print("panic", panics, 5);
    Layer::Instance().Reset();
    return 0;
}
