#include "midi/synth.h"

Synth::Synth() = default;
Synth::~Synth() = default;
