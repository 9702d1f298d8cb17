#include "vemo_core/click.h"

#include <algorithm>

namespace CL {

int Click::ClocksPerClick(int notated32Per24Clocks) const {
    return std::max(1, int_value() * 24 / std::max(1, notated32Per24Clocks));
}

}  // namespace CL
