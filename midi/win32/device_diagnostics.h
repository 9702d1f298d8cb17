#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <string>

#include "midi/vemo_midi_export.h"

// Words for the platform's MIDI output devices and error codes, for messages and
// for the operator. None of them throws for an unknown code or value; any thread
// may call them. Names and texts are narrowed to the low 8 bits of each UTF-16
// unit.

/// The name and meaning of a multimedia or MIDI error code.
VEMO_MIDI_EXPORT std::string GetMidiErrorAsString(unsigned int code);

/// The platform's own text for an error code.
VEMO_MIDI_EXPORT std::string GetMidiOutErrorText(unsigned int code);

VEMO_MIDI_EXPORT std::string GetTechnologyAsString(const MIDIOUTCAPSW& capabilities);

/// Up to the terminating zero, or all 32 characters where there is none.
VEMO_MIDI_EXPORT std::string GetProductName(const MIDIOUTCAPSW& capabilities);

/// Ten lines about one device.
VEMO_MIDI_EXPORT std::string GetMidiOutDevCapsAsString(const MIDIOUTCAPSW& capabilities);

/// The device's index and description, or a report on why it cannot be read.
VEMO_MIDI_EXPORT std::string GetMidiOutDeviceInformation(unsigned int deviceIndex);

/// A report on all output devices, each followed by two line ends.
VEMO_MIDI_EXPORT std::string CreateMidiDeviceSummary();
