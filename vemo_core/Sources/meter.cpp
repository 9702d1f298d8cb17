#include "vemo_core/meter.h"

namespace TL {

std::string Meter::as_string() const {
    return std::to_string(beats_) + "/" + std::to_string(beatUnit_);
}

}  // namespace TL
