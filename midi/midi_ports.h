#pragma once

#include <memory>
#include <string>
#include <vector>

#include "midi/midi_end_point.h"
#include "midi/midi_port.h"
#include "midi/vemo_midi_export.h"

// The computer's MIDI devices, asked anew with each call; nothing is kept. Devices
// beyond the 256th are left out. The product's own virtual ports, known by how
// their names begin, are in no list of endpoints: a show that listens to itself
// never stops. Any thread may call.

/// One port per input device, in the order of their indices; none is opened.
VEMO_MIDI_EXPORT std::vector<std::shared_ptr<MidiPort>> GetMidiInputPorts();
VEMO_MIDI_EXPORT std::vector<std::string> GetMidiInputPortNames();

/// Their indices are those of the devices: where one is left out there is a gap.
VEMO_MIDI_EXPORT std::vector<MidiEndPoint> GetNonVemoMidiSources();
/// Empty on this platform, as GetMidiOutputPorts().
VEMO_MIDI_EXPORT std::vector<MidiEndPoint> GetNonVemoMidiDestinations();
VEMO_MIDI_EXPORT bool IsValidNonVemoSourceIndex(int index);
VEMO_MIDI_EXPORT bool IsValidNonVemoDestinationIndex(int index);

/// Of the input with that index or id; 0 and a line on standard error where there
/// is none.
VEMO_MIDI_EXPORT int GetUniqueIdFromIndex(unsigned char index);
VEMO_MIDI_EXPORT unsigned char GetIndexFromUniqueId(int uniqueId);
