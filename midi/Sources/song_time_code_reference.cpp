#include "midi/song_time_code_reference.h"

#include <iterator>

SongTimeCodeReference::SongTimeCodeReference() = default;

SongTimeCodeReference::SongTimeCodeReference(double startSeconds, const TL::Timeline& timeline, unsigned int resolution)
    : songEndSeconds_(startSeconds) {
    double seconds = startSeconds;
    double secondsPerTick = 0.0;
    std::uint32_t previousTick = 0;
    for (const TL::Tempo& tempo : timeline.GetTempos()) {
        const std::uint32_t tick = tempo.abs_time();
        seconds += (tick - previousTick) * secondsPerTick;
        secondsPerTick = tempo.tick_time(resolution);
        previousTick = tick;
        points_.insert_or_assign(tick, TimeCodePoint(tick, seconds, secondsPerTick));
    }
    songEndSeconds_ = GetTimeCodeAtTickIndex(timeline.GetLastTickIndex()).GetSeconds();
}

TimeCodePoint SongTimeCodeReference::GetTimeCodeAtTickIndex(unsigned int tickIndex) const {
    if (points_.empty())
        return {tickIndex, songEndSeconds_, 0.0};
    const auto after = points_.upper_bound(tickIndex);
    if (after == points_.begin())
        return {tickIndex, after->second.GetSeconds(), 0.0};
    const TimeCodePoint& point = std::prev(after)->second;
    return {tickIndex, point.GetSeconds() + (tickIndex - point.GetTickIndex()) * point.GetSecondsPerTick(),
            point.GetSecondsPerTick()};
}
