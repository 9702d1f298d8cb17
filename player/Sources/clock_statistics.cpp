#include "player/clock_statistics.h"

#include <algorithm>
#include <cmath>

#include "zell/format.h"

namespace player {

namespace {

double Milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

// The smallest value that so much of them do not exceed.
double Quantile(std::vector<float> values, double share) {
    if (values.empty())
        return 0;
    const auto index =
        std::min(values.size() - 1, static_cast<std::size_t>(share * static_cast<double>(values.size())));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
    return values[index];
}

std::string Spread(const std::vector<float>& values) {
    return zell::format("median %.3f ms, 99th percentile %.3f ms, worst %.3f ms", Quantile(values, 0.5),
                        Quantile(values, 0.99), Quantile(values, 1));
}

}  // namespace

void ClockStatistics::Add(const PlaybackRecord& record) {
    if (record.kind != PlaybackRecord::Kind::kClock)
        return;
    ++clocks_;
    if (record.firstAfterStart) {
        start_ = record.time;
        idealSeconds_ = 0;
    } else {
        idealSeconds_ += previousLength_;
        intervalErrors_.push_back(
            static_cast<float>(std::abs(Milliseconds(record.time - previous_) - previousLength_ * 1000)));
        drift_ = Milliseconds(record.time - start_) - idealSeconds_ * 1000;
        distances_.push_back(static_cast<float>(std::abs(drift_)));
    }
    previous_ = record.time;
    previousLength_ = record.clockSeconds;
}

std::string ClockStatistics::Report() const {
    return zell::format("%d clocks played; error of their intervals: %s\n", clocks_, Spread(intervalErrors_)) +
           zell::format("distance from the ideal times: %s; drift over the last song %.3f ms\n", Spread(distances_),
                        drift_);
}

}  // namespace player
