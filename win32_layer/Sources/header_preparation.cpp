#include "header_preparation.h"

namespace win32_layer {

MMRESULT PrepareHeader(LPMIDIHDR header, UINT headerBytes, int& prepared) {
    if (!header || headerBytes < sizeof(MIDIHDR))
        return MMSYSERR_INVALPARAM;
    if (header->dwFlags & MHDR_PREPARED)
        return MMSYSERR_NOERROR;
    header->dwFlags = (header->dwFlags | MHDR_PREPARED) & ~DWORD{MHDR_DONE | MHDR_INQUEUE};
    ++prepared;
    return MMSYSERR_NOERROR;
}

MMRESULT UnprepareHeader(LPMIDIHDR header, UINT headerBytes, int& prepared) {
    if (!header || headerBytes < sizeof(MIDIHDR))
        return MMSYSERR_INVALPARAM;
    if (header->dwFlags & MHDR_INQUEUE)
        return MIDIERR_STILLPLAYING;
    if (!(header->dwFlags & MHDR_PREPARED))
        return MMSYSERR_NOERROR;
    header->dwFlags &= ~DWORD{MHDR_PREPARED};
    --prepared;
    return MMSYSERR_NOERROR;
}

}  // namespace win32_layer
