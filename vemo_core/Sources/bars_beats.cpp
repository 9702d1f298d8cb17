#include "vemo_core/bars_beats.h"

namespace TL {

std::string BarsBeats::as_string() const {
    return std::to_string(bar_) + ":" + std::to_string(beat_);
}

}  // namespace TL
