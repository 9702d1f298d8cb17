#include "vemo_core/paired_event.h"

#include "zell/format.h"

namespace CL {

void PairedEvent::WriteString(std::ostream& out) const {
    out << zell::format("start=%u end=%u value=%g", start_, end_, floatValue_);
}

}  // namespace CL
