#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <cstdint>
#include <exception>

#include "midi/midi_input_interface.h"
#include "midi/midi_message.h"
#include "midi/win32/midi_input_port_win32.h"
#include "vemo_core/exception_log.h"

/// Hands each short message of an input device of the platform to
/// Target::ProcessMessage; everything else that the device sends is dropped.
///
/// Owner:   the target, which outlives it, or the target's owner.
/// Threads: messages arrive on the input thread with none of our locks held.
///          Destroying it waits for the message being delivered. From within
///          that delivery it does not wait, where the platform's service is ours;
///          Windows forbids its own to be called there, and may wait for ever: a
///          host that runs on Windows posts such a change to another thread.
/// Lock:    the port's, a leaf.
/// Errors:  MidiPortError where the device cannot be opened or started. What the
///          target throws is logged.
template <class Target>
class MidiInputWin32 : public MidiInputInterface {
public:
    MidiInputWin32(unsigned char portIndex, Target* target) : port_(portIndex, &InputProcedure, target) {}
    ~MidiInputWin32() override { port_.KillIt(); }

    void Start() override { port_.Start(); }
    unsigned char GetPortIndex() override { return port_.GetPortIndex(); }

private:
    // Where every report of this procedure says it was caught.
    static constexpr int kGuardLine = 49;

    static void CALLBACK InputProcedure(HMIDIIN, UINT message, DWORD_PTR instance, DWORD_PTR parameter1, DWORD_PTR) {
        auto* port = reinterpret_cast<MidiInputPortWin32*>(instance);
        if (message != MIM_DATA || !port->GetIsRunning())
            return;
        auto* target = static_cast<Target*>(port->GetCallbackTarget());
        // The port is not touched from here on: what the message sets off may
        // replace this input.
        try {
            target->ProcessMessage(MIDIMessage{static_cast<std::uint8_t>(parameter1),
                                               static_cast<std::uint8_t>(parameter1 >> 8),
                                               static_cast<std::uint8_t>(parameter1 >> 16)});
        } catch (const std::exception& error) {
            VemoLogException(error.what(), "midi/win32/midi_input_win32", kGuardLine);
        } catch (...) {
            VemoLogException("Unknown exception.", "midi/win32/midi_input_win32", kGuardLine);
        }
    }

    MidiInputPortWin32 port_;
};
