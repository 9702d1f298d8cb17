#include "vemo_core/codes.h"

namespace codes {

std::string editNameByVemoEventCode(std::uint16_t code) {
    switch (code) {
        case kClick: return "Click";
        case kTempoScale: return "TempoScale";
        case kTranspose: return "Transpose";
        case kMarker: return "Marker";
        default: return "Unknown";
    }
}

}  // namespace codes
