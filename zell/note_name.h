#pragma once

#include <string>

#include "zell/zell_export.h"

namespace zell::midi {

/// The name of a MIDI note with its octave; note 60 is "C4". Any number is
/// named, also beyond 127.
ZELL_EXPORT std::string GetNoteName(unsigned int note);

}  // namespace zell::midi
