#pragma once

#include <list>

#include "vemo_core/bars_beats.h"
#include "vemo_core/change_log_sequence.h"
#include "vemo_core/click.h"
#include "vemo_core/meter.h"
#include "vemo_core/timeline_sequence.h"
#include "vemo_core/vemo_core_export.h"

namespace CL {

/// The tick indices at which the performers hear a click, ascending, all before
/// the last tick: where the clock number is 0. Clocks are counted from the bar's
/// first beat or, after it, from the start of a click of the song log that
/// starts with a beat, modulo the clocks per click that the click or else the
/// meter gives there. Empty without beats or meters.
VEMO_CORE_EXPORT std::list<unsigned int> CreateBeatTicks(const TL::TimelineSequence<TL::BarsBeats>& barsBeats,
                                                         const ChangeLogSequence<Click>& clicks,
                                                         const TL::TimelineSequence<TL::Meter>& meters,
                                                         unsigned int lastTickIndex, unsigned int resolution);

}  // namespace CL
