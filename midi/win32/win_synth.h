#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <cstdint>

#include "midi/synth.h"
#include "midi/vemo_midi_export.h"
#include "midi/win32/midi_buffer_win32.h"

/// The one open MIDI stream that all output ports write to.
///
/// Owner:   MidiOutputWin32; every header prepared for it is unprepared before it
///          is destroyed, or never touched again.
/// Threads: SendDataBuffer() on the clock thread or a host thread, with the cycle
///          buffer's mutex held, for up to three seconds; the rest on host threads
///          while playback is stopped. The platform returns buffers on a thread of
///          its own.
/// Lock:    none.
/// Errors:  MidiDeviceUnavailable from the constructor, MidiImplementationError
///          from a failed platform call, std::logic_error for a header that is
///          not prepared for this stream.
class VEMO_MIDI_EXPORT WinSynth : public Synth {
public:
    /// Opens the stream, paused, on that output device.
    explicit WinSynth(UINT deviceIndex = 0);
    ~WinSynth() override;

    HMIDIOUT GetStreamHandle() const { return reinterpret_cast<HMIDIOUT>(streamHandle_); }
    /// Sends one port's events and waits until the stream has taken them. A stream
    /// buffer that does not come back within three seconds is quarantined.
    void SendDataBuffer(MidiBufferWin32* buffer, std::uint8_t portIndex);
    void Restart();
    void Stop();

private:
    static void CALLBACK StreamCallback(HMIDIOUT handle, UINT message, DWORD_PTR instance, DWORD_PTR parameter1,
                                        DWORD_PTR parameter2);

    HMIDISTRM streamHandle_ = nullptr;
};
