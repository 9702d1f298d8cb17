#pragma once

#include <string>

#include "vemo_core/vemo_core_export.h"

namespace Keys {

/// The name of a key signature moved by semitones, as "E flat major" or
/// "C sharp minor", spelled with at most six sharps or flats unless the
/// signature itself stands untransposed.
VEMO_CORE_EXPORT std::string getTransposedName(int sharps, bool minor, int semitones);

}  // namespace Keys
