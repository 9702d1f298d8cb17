#include "player/song_times.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace player {

namespace {

constexpr double kLeastScale = 0.5;
constexpr double kMostScale = 2.0;
constexpr double kSecondsPerMinute = 60;

}  // namespace

SongTimes::SongTimes(const ImportedSong& song) {
    const auto& tempos = song.song.GetTimeline().GetTempos();
    const auto& scales = song.log.GetTempoScales();
    std::set<std::uint32_t> changes = {0};
    for (const TL::Tempo& tempo : tempos)
        changes.insert(tempo.abs_time());
    for (const CL::TempoScale& scale : scales)
        changes.insert({scale.start(), scale.end()});
    auto tempo = tempos.begin();
    auto scale = scales.begin();
    for (const std::uint32_t tick : changes) {
        while (std::next(tempo) != tempos.end() && std::next(tempo)->abs_time() <= tick)
            ++tempo;
        while (scale != scales.end() && scale->end() <= tick)
            ++scale;
        const bool isScaled = scale != scales.end() && scale->start() <= tick;
        const double factor = isScaled ? std::clamp(scale->value(), kLeastScale, kMostScale) : 1;
        stretches_.push_back(
            {tick, stretches_.empty() ? 0 : SecondsAt(tick),
             kSecondsPerMinute / tempo->quarter_notes_per_minute() / factor / song.song.GetResolution()});
    }
    length_ = SecondsAt(song.song.GetTimeline().GetLastTickIndex());
}

double SongTimes::SecondsAt(std::uint32_t tick) const {
    const auto after = std::upper_bound(stretches_.begin(), stretches_.end(), tick,
                                        [](std::uint32_t at, const Stretch& stretch) { return at < stretch.tick; });
    const Stretch& stretch = *std::prev(after);
    return stretch.seconds + (tick - stretch.tick) * stretch.secondsPerTick;
}

}  // namespace player
