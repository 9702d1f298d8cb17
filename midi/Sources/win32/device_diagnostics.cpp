#include "midi/win32/device_diagnostics.h"

#include <iterator>
#include <sstream>

#include "midi/Sources/win32/narrow_text.h"
#include "zell/format.h"

std::string GetMidiErrorAsString(unsigned int code) {
    switch (code) {
        case 1: return "MMSYSERR_ERROR unspecified error";
        case 2: return "MMSYSERR_BADDEVICEID device ID out of range";
        case 3: return "MMSYSERR_NOTENABLED driver failed enable";
        case 4: return "MMSYSERR_ALLOCATED device already allocated";
        case 5: return "MMSYSERR_INVALHANDLE device handle is invalid";
        case 6: return "MMSYSERR_NODRIVER no device driver present";
        case 7: return "MMSYSERR_NOMEM memory allocation error";
        case 8: return "MMSYSERR_NOTSUPPORTED function isn't supported";
        case 9: return "MMSYSERR_BADERRNUM error value out of range";
        case 10: return "MMSYSERR_INVALFLAG invalid flag passed";
        case 11: return "MMSYSERR_INVALPARAM invalid parameter passed";
        case 12: return "MMSYSERR_HANDLEBUSY handle being used simultaneously on another thread (eg callback)";
        case 13: return "MMSYSERR_INVALIDALIAS specified alias not found";
        case 14: return "MMSYSERR_BADDB bad registry database";
        case 15: return "MMSYSERR_KEYNOTFOUND registry key not found";
        case 16: return "MMSYSERR_READERROR registry read error";
        case 17: return "MMSYSERR_WRITEERROR registry write error";
        case 18: return "MMSYSERR_DELETEERROR registry delete error";
        case 19: return "MMSYSERR_VALNOTFOUND registry value not found";
        case 20: return "MMSYSERR_NODRIVERCB driver does not call DriverCallback";
        case 21: return "MMSYSERR_MOREDATA more data to be returned";
        case 64: return "MIDIERR_UNPREPARED header not prepared";
        case 65: return "MIDIERR_STILLPLAYING still something playing";
        case 66: return "MIDIERR_NOMAP no configured instruments";
        case 67: return "MIDIERR_NOTREADY hardware is still busy";
        case 68: return "MIDIERR_NODEVICE port no longer connected";
        case 69: return "MIDIERR_INVALIDSETUP invalid MIF";
        case 70: return "MIDIERR_BADOPENMODE operation unsupported w/ open mode";
        case 71: return "MIDIERR_DONT_CONTINUE thru device 'eating' a message";
        default: return zell::format("Unknown error code %d", code);
    }
}

std::string GetMidiOutErrorText(unsigned int code) {
    WCHAR text[256] = {};
    const MMRESULT result = midiOutGetErrorTextW(code, text, static_cast<UINT>(std::size(text)));
    switch (result) {
        case MMSYSERR_NOERROR: return NarrowText(text, std::size(text));
        case MMSYSERR_BADERRNUM: return zell::format("MMSYSERR_BADERRNUM: Unknown error %d", code);
        case MMSYSERR_INVALPARAM: return "midiOutGetErrorText MMSYSERR_INVALPARAM";
        default: return zell::format("midiOutGetErrorText: Unknown error %d", code);
    }
}

std::string GetTechnologyAsString(const MIDIOUTCAPSW& capabilities) {
    switch (capabilities.wTechnology) {
        case 1: return "MOD_MIDIPORT: MIDI hardware port.";
        case 2: return "MOD_SYNTH: Synthesizer.";
        case 3: return "MOD_SQSYNTH: Square wave synthesizer.";
        case 4: return "MOD_FMSYNTH: FM synthesizer.";
        case 5: return "MOD_MAPPER: Microsoft MIDI mapper.";
        case 6: return "MOD_WAVETABLE: Hardware wavetable synthesizer.";
        case 7: return "MOD_SWSYNTH: Software synthesizer.";
        default: return zell::format("Unknown wTechnology value: %d", capabilities.wTechnology);
    }
}

std::string GetProductName(const MIDIOUTCAPSW& capabilities) {
    return NarrowText(capabilities.szPname, std::size(capabilities.szPname));
}

std::string GetMidiOutDevCapsAsString(const MIDIOUTCAPSW& capabilities) {
    std::ostringstream text;
    text << "Midi Output Device:" << std::endl
         << "  Manufacturer Identifier: " << capabilities.wMid << std::endl
         << "  Product Identifier: " << capabilities.wPid << std::endl
         << "  Driver Version: " << capabilities.vDriverVersion << std::endl
         << "  Product Name: " << GetProductName(capabilities) << std::endl
         << "  Type: " << GetTechnologyAsString(capabilities) << std::endl
         << "  Voices: " << capabilities.wVoices << std::endl
         << "  Notes: " << capabilities.wNotes << std::endl
         << "  ChannelMask: " << capabilities.wChannelMask << std::endl
         << "  Support: " << capabilities.dwSupport << std::endl;
    return text.str();
}

std::string GetMidiOutDeviceInformation(unsigned int deviceIndex) {
    std::ostringstream text;
    MIDIOUTCAPSW capabilities = {};
    const MMRESULT result = midiOutGetDevCapsW(deviceIndex, &capabilities, sizeof(capabilities));
    if (result != MMSYSERR_NOERROR)
        text << "Unable to retrieve device capabilities for midi device " << deviceIndex << std::endl
             << "Error reported: " << GetMidiErrorAsString(result) << std::endl;
    else
        text << "MIDI device index: " << deviceIndex << std::endl << GetMidiOutDevCapsAsString(capabilities);
    return text.str();
}

std::string CreateMidiDeviceSummary() {
    const UINT count = midiOutGetNumDevs();
    if (count == 0)
        return "There are no available devices for midi output.";
    std::ostringstream text;
    text << "Device info for " << count << " MIDI devices." << std::endl;
    for (UINT index = 0; index < count; ++index)
        text << GetMidiOutDeviceInformation(index) << "\n" << std::endl;
    return text.str();
}
