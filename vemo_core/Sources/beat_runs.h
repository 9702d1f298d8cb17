#pragma once

#include <cstdint>
#include <vector>

#include "vemo_core/bars_beats.h"
#include "vemo_core/change_log_sequence.h"
#include "vemo_core/click.h"
#include "vemo_core/meter.h"
#include "vemo_core/timeline_sequence.h"

namespace CL {

/// Clicks at even distances: first, first + step, ... before end. A run can be
/// counted before it is listed: a file of a few bytes can ask for a click on
/// every clock of years.
struct BeatRun {
    std::uint64_t first;
    std::uint64_t end;
    std::uint64_t step;

    std::uint64_t Count() const { return first < end ? (end - first + step - 1) / step : 0; }
};

/// What CreateBeatTicks() lists, as runs in ascending order.
std::vector<BeatRun> CreateBeatRuns(const TL::TimelineSequence<TL::BarsBeats>& barsBeats,
                                    const ChangeLogSequence<Click>& clicks,
                                    const TL::TimelineSequence<TL::Meter>& meters, unsigned int lastTickIndex,
                                    unsigned int resolution);

}  // namespace CL
