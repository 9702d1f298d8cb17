#pragma once

#include "vemo_core/marker.h"
#include "vemo_core/sequence_template.h"

namespace CL {

/// The song's markers in ascending tick order.
class MarkerSequence : public cmn::SequenceTemplate<Marker> {
public:
    using cmn::SequenceTemplate<Marker>::SequenceTemplate;
};

}  // namespace CL
