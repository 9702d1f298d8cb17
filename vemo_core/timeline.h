#pragma once

#include <cstdint>

#include "vemo_core/bars_beats.h"
#include "vemo_core/key.h"
#include "vemo_core/meter.h"
#include "vemo_core/page_num.h"
#include "vemo_core/tempo.h"
#include "vemo_core/timeline_sequence.h"
#include "vemo_core/vemo_core_export.h"

namespace TL {

/// A song's timeline: its one end and the five sequences along it. A value,
/// built by SongBuilder, which guarantees a tempo, a meter, a key and a beat at
/// tick 0.
class VEMO_CORE_EXPORT Timeline {
public:
    Timeline();
    Timeline(std::uint32_t lastTickIndex, TimelineSequence<BarsBeats> barsBeats, TimelineSequence<Tempo> tempos,
             TimelineSequence<Meter> meters, TimelineSequence<Key> keys, TimelineSequence<PageNum> pageNums);

    std::uint32_t GetLastTickIndex() const { return lastTickIndex_; }
    const TimelineSequence<BarsBeats>& GetBarsBeats() const { return barsBeats_; }
    const TimelineSequence<Tempo>& GetTempos() const { return tempos_; }
    const TimelineSequence<Meter>& GetMeters() const { return meters_; }
    const TimelineSequence<Key>& GetKeys() const { return keys_; }
    const TimelineSequence<PageNum>& GetPageNums() const { return pageNums_; }

private:
    std::uint32_t lastTickIndex_ = 0;
    TimelineSequence<BarsBeats> barsBeats_;
    TimelineSequence<Tempo> tempos_;
    TimelineSequence<Meter> meters_;
    TimelineSequence<Key> keys_;
    TimelineSequence<PageNum> pageNums_;
};

}  // namespace TL
