#include "vemo_core/tempo.h"

namespace TL {

double Tempo::tick_time(unsigned int resolution) const {
    return 60.0 / (quarterNotesPerMinute_ * resolution);
}

double Tempo::bpm(int clocksPerClick) const {
    return quarterNotesPerMinute_ * 24.0 / clocksPerClick;
}

double Tempo::seconds_per_clock() const {
    return 60.0 / (quarterNotesPerMinute_ * 24.0);
}

}  // namespace TL
