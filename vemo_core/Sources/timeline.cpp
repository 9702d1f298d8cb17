#include "vemo_core/timeline.h"

#include <utility>

namespace TL {

Timeline::Timeline() = default;

Timeline::Timeline(std::uint32_t lastTickIndex, TimelineSequence<BarsBeats> barsBeats, TimelineSequence<Tempo> tempos,
                   TimelineSequence<Meter> meters, TimelineSequence<Key> keys, TimelineSequence<PageNum> pageNums)
    : lastTickIndex_(lastTickIndex),
      barsBeats_(std::move(barsBeats)),
      tempos_(std::move(tempos)),
      meters_(std::move(meters)),
      keys_(std::move(keys)),
      pageNums_(std::move(pageNums)) {}

}  // namespace TL
