#pragma once

#include "vemo_core/sequence_template.h"

namespace TL {

/// A sequence of the timeline.
template <class T>
class TimelineSequence : public cmn::SequenceTemplate<T> {
public:
    using cmn::SequenceTemplate<T>::SequenceTemplate;
};

}  // namespace TL
