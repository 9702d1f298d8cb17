#include "vemo_core/Sources/beat_runs.h"

#include <algorithm>
#include <cstddef>

namespace CL {

namespace {

/// Walks a sequence along with ascending ticks.
template <class T>
class Follower {
public:
    explicit Follower(const cmn::SequenceTemplate<T>& sequence) : current_(sequence.begin()), end_(sequence.end()) {}

    /// The last element that starts at or before the tick, else the first.
    const T& At(std::uint32_t tick) {
        while (current_ + 1 != end_ && (current_ + 1)->abs_time() <= tick)
            ++current_;
        return *current_;
    }

private:
    typename cmn::SequenceTemplate<T>::const_iterator current_;
    typename cmn::SequenceTemplate<T>::const_iterator end_;
};

}  // namespace

std::vector<BeatRun> CreateBeatRuns(const TL::TimelineSequence<TL::BarsBeats>& barsBeats,
                                    const ChangeLogSequence<Click>& clicks,
                                    const TL::TimelineSequence<TL::Meter>& meters, unsigned int lastTickIndex,
                                    unsigned int resolution) {
    std::vector<BeatRun> runs;
    if (barsBeats.empty() || meters.empty())
        return runs;
    const std::uint64_t ticksPerClock = std::max(1u, resolution / 24);

    // Between two of these places neither what is counted from nor the modulus changes.
    std::vector<std::uint32_t> places{barsBeats.front().abs_time()};
    for (const auto& beat : barsBeats)
        if (beat.beat() == 1)
            places.push_back(beat.abs_time());
    for (const auto& meter : meters)
        places.push_back(meter.abs_time());
    for (const auto& click : clicks) {
        places.push_back(click.start());
        places.push_back(click.end());
    }
    std::ranges::sort(places);
    places.erase(std::ranges::unique(places).begin(), places.end());
    places.erase(std::ranges::lower_bound(places, lastTickIndex), places.end());
    places.erase(places.begin(), std::ranges::lower_bound(places, barsBeats.front().abs_time()));

    Follower beatAt(barsBeats);
    Follower meterAt(meters);
    Follower clickAt(clicks);
    std::uint64_t bar = places.empty() ? 0 : places.front();
    std::uint64_t origin = bar;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const std::uint32_t place = places[i];
        const std::uint64_t end = i + 1 < places.size() ? places[i + 1] : lastTickIndex;
        const TL::BarsBeats& beat = beatAt.At(place);
        const Click* click = clicks.empty() ? nullptr : &clickAt.At(place);
        const bool onBeat = beat.abs_time() == place;
        if (onBeat && beat.beat() == 1)
            origin = bar = place;
        else if (click && click->start() == place)
            origin = onBeat ? place : bar;
        const TL::Meter& meter = meterAt.At(place);
        const bool covered = click && click->start() <= place && place < click->end();
        const int clocksPerClick =
            covered ? click->ClocksPerClick(meter.notated_32_per_click()) : std::max(1, meter.clocks_per_click());
        const std::uint64_t step = ticksPerClock * static_cast<std::uint64_t>(clocksPerClick);
        runs.push_back({origin + (place - origin + step - 1) / step * step, end, step});
    }
    return runs;
}

}  // namespace CL
