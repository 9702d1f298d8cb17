#include <windows.h>

#include <mmsystem.h>

#include <algorithm>
#include <string_view>

#include "faults.h"

namespace {

const wchar_t* const kSystemTexts[] = {
    L"MMSYSERR_NOERROR no error",
    L"MMSYSERR_ERROR unspecified error",
    L"MMSYSERR_BADDEVICEID device ID out of range",
    L"MMSYSERR_NOTENABLED driver failed enable",
    L"MMSYSERR_ALLOCATED device already allocated",
    L"MMSYSERR_INVALHANDLE device handle is invalid",
    L"MMSYSERR_NODRIVER no device driver present",
    L"MMSYSERR_NOMEM memory allocation error",
    L"MMSYSERR_NOTSUPPORTED function isn't supported",
    L"MMSYSERR_BADERRNUM error value out of range",
    L"MMSYSERR_INVALFLAG invalid flag passed",
    L"MMSYSERR_INVALPARAM invalid parameter passed",
    L"MMSYSERR_HANDLEBUSY handle being used simultaneously on another thread (eg callback)",
    L"MMSYSERR_INVALIDALIAS specified alias not found",
    L"MMSYSERR_BADDB bad registry database",
    L"MMSYSERR_KEYNOTFOUND registry key not found",
    L"MMSYSERR_READERROR registry read error",
    L"MMSYSERR_WRITEERROR registry write error",
    L"MMSYSERR_DELETEERROR registry delete error",
    L"MMSYSERR_VALNOTFOUND registry value not found",
    L"MMSYSERR_NODRIVERCB driver does not call DriverCallback",
    L"MMSYSERR_MOREDATA more data to be returned"};

const wchar_t* const kMidiTexts[] = {L"MIDIERR_UNPREPARED header not prepared",
                                     L"MIDIERR_STILLPLAYING still something playing",
                                     L"MIDIERR_NOMAP no configured instruments",
                                     L"MIDIERR_NOTREADY hardware is still busy",
                                     L"MIDIERR_NODEVICE port no longer connected",
                                     L"MIDIERR_INVALIDSETUP invalid MIF",
                                     L"MIDIERR_BADOPENMODE operation unsupported w/ open mode",
                                     L"MIDIERR_DONT_CONTINUE thru device 'eating' a message"};

}  // namespace

MMRESULT midiOutGetErrorTextW(MMRESULT code, LPWSTR text, UINT textCharacters) {
    if (const auto fault = win32_layer::Faults::Instance().Take(win32_layer::Fault::kErrorText))
        return *fault;
    if (!text || textCharacters == 0)
        return MMSYSERR_INVALPARAM;
    std::wstring_view found;
    if (code < std::size(kSystemTexts))
        found = kSystemTexts[code];
    else if (code >= MIDIERR_BASE && code - MIDIERR_BASE < std::size(kMidiTexts))
        found = kMidiTexts[code - MIDIERR_BASE];
    else
        return MMSYSERR_BADERRNUM;
    const std::size_t written = found.copy(text, textCharacters - 1);
    text[written] = L'\0';
    return MMSYSERR_NOERROR;
}
