#pragma once

#include <windows.h>

#include <mmsystem.h>

namespace win32_layer {

/// The preparing of a header of either direction, as midiOutPrepareHeader and
/// midiInPrepareHeader have it: what is prepared already stays so. prepared: how many headers
/// are.
///
/// Threads: one at a time (the owner's lock).
MMRESULT PrepareHeader(LPMIDIHDR header, UINT headerBytes, int& prepared);
/// MIDIERR_STILLPLAYING for one that a device still has.
MMRESULT UnprepareHeader(LPMIDIHDR header, UINT headerBytes, int& prepared);

}  // namespace win32_layer
