#include "vemo_core/beat_ticks.h"

#include "vemo_core/Sources/beat_runs.h"

namespace CL {

std::list<unsigned int> CreateBeatTicks(const TL::TimelineSequence<TL::BarsBeats>& barsBeats,
                                        const ChangeLogSequence<Click>& clicks,
                                        const TL::TimelineSequence<TL::Meter>& meters, unsigned int lastTickIndex,
                                        unsigned int resolution) {
    std::list<unsigned int> ticks;
    for (const BeatRun& run : CreateBeatRuns(barsBeats, clicks, meters, lastTickIndex, resolution))
        for (std::uint64_t tick = run.first; tick < run.end; tick += run.step)
            ticks.push_back(static_cast<unsigned int>(tick));
    return ticks;
}

}  // namespace CL
