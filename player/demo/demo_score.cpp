#include "player/demo/demo_score.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace player {

DemoScore::DemoScore(std::string title, std::uint16_t ticksPerQuarter)
    : title_(std::move(title)), ticks_(ticksPerQuarter) {}

void DemoScore::Tempo(double at, double quarterNotesPerMinute) {
    const auto microseconds = static_cast<std::uint32_t>(std::lround(60e6 / quarterNotesPerMinute));
    Meta_(at, 0x51, {microseconds >> 16, microseconds >> 8 & 0xFF, microseconds & 0xFF});
}

void DemoScore::Meter(double at, unsigned int beats, unsigned int exponent) {
    Meta_(at, 0x58, {beats, exponent, 96u >> exponent, 8});
}

void DemoScore::Key(double at, int sharps, bool minor) {
    Meta_(at, 0x59, {static_cast<unsigned int>(sharps) & 0xFF, minor ? 1u : 0u});
}

void DemoScore::Marker(double at, std::string text) {
    metas_.push_back({at, 0x06, std::move(text)});
}

MidiFile DemoScore::Tracks(const std::vector<DemoPart>& parts, double end) const {
    MidiFile file{title_, 1, ticks_, {}};
    file.tracks.push_back(Track_(title_, metas_, {}, end));
    for (const DemoPart& part : parts)
        file.tracks.push_back(Track_(part.Name(), {}, part.Events(), end));
    return file;
}

MidiFile DemoScore::OneTrack(const std::vector<DemoPart>& parts, double end) const {
    std::vector<DemoPart::Event> all;
    for (const DemoPart& part : parts)
        all.insert(all.end(), part.Events().begin(), part.Events().end());
    return {title_, 0, ticks_, {Track_(title_, metas_, std::move(all), end)}};
}

void DemoScore::Meta_(double at, std::uint8_t type, std::initializer_list<unsigned int> bytes) {
    std::string payload;
    for (const unsigned int byte : bytes)
        payload += static_cast<char>(byte);
    metas_.push_back({at, type, std::move(payload)});
}

std::uint32_t DemoScore::Tick_(double at) const {
    return static_cast<std::uint32_t>(std::lround(at * ticks_));
}

MidiTrack DemoScore::Track_(const std::string& name, std::vector<Meta> metas, std::vector<DemoPart::Event> events,
                            double end) const {
    std::ranges::stable_sort(metas, {}, [&](auto& meta) { return Tick_(meta.at); });
    std::ranges::stable_sort(events, {}, [&](auto& event) { return std::pair(Tick_(event.at), event.rank); });
    MidiTrack track;
    track.AddMeta(0, 0x03, name);
    auto meta = metas.begin();
    for (const DemoPart::Event& event : events) {
        for (; meta != metas.end() && Tick_(meta->at) <= Tick_(event.at); ++meta)
            track.AddMeta(Tick_(meta->at), meta->type, meta->payload);
        track.AddMessage(Tick_(event.at), event.status, event.data1, event.data2);
    }
    for (; meta != metas.end(); ++meta)
        track.AddMeta(Tick_(meta->at), meta->type, meta->payload);
    track.EndAt(Tick_(end));
    return track;
}

}  // namespace player
