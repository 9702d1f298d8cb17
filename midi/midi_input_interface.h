#pragma once

#include "midi/vemo_midi_export.h"

/// An open MIDI input, as the dispatcher sees it on any platform. Destroying it
/// closes the device.
///
/// Owner, threads: see MidiMessageDispatcher.
/// Lock:    none that outlasts a call.
/// Errors:  Start: MidiPortError where the device cannot be started.
class VEMO_MIDI_EXPORT MidiInputInterface {
public:
    MidiInputInterface();
    virtual ~MidiInputInterface();
    MidiInputInterface(const MidiInputInterface&) = delete;
    MidiInputInterface& operator=(const MidiInputInterface&) = delete;

    /// Messages are delivered from now on.
    virtual void Start() = 0;
    virtual unsigned char GetPortIndex() = 0;
};
