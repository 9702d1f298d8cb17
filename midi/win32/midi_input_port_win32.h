#pragma once

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "midi/midi_input_port.h"
#include "midi/vemo_midi_export.h"

/// A MIDI input device of the platform: open and, once started, delivering to a
/// callback function; or only listed, to ask for its name.
///
/// Owner:   whoever opened or listed it. The target outlives it.
/// Threads: Start() and KillIt() on host threads, one at a time; also on the input
///          thread within the callback where the platform's service is ours, not
///          on Windows. The rest on any.
/// Lock:    mutex_, a leaf, held only to read or write the running flag.
/// Errors:  MidiPortError with the call, its result and a text where the device
///          cannot be opened or started.
class VEMO_MIDI_EXPORT MidiInputPortWin32 : public MidiInputPort {
public:
    /// The platform's: this port comes as the instance. It arrives on the input
    /// thread with none of our locks held.
    using InputCallback = void(CALLBACK*)(HMIDIIN handle, UINT message, DWORD_PTR instance, DWORD_PTR parameter1,
                                          DWORD_PTR parameter2);

    /// Only lists the device.
    explicit MidiInputPortWin32(std::uint8_t portIndex);
    /// Opens the device; without a callback, only lists it. It delivers nothing
    /// before Start().
    MidiInputPortWin32(std::uint8_t portIndex, InputCallback callback, void* callbackTarget);
    /// As KillIt().
    ~MidiInputPortWin32() override;
    MidiInputPortWin32(const MidiInputPortWin32&) = delete;
    MidiInputPortWin32& operator=(const MidiInputPortWin32&) = delete;

    /// The platform's inputs have no unique ids: any is accepted, and it reports 0.
    bool SetUniqueId(int id) override;
    /// "Not a valid input device." where the platform has no such device.
    std::string GetDisplayName() override;
    int GetUniqueId() override;

    void Start() override;
    /// Ends the delivery and closes the device. The platform waits for a callback
    /// that is running on the input thread, so no lock may be held here that the
    /// callback could want. From within the callback ours does not wait, and
    /// Windows may do so for ever.
    void KillIt();

    bool GetIsRunning();
    void* GetCallbackTarget() const { return callbackTarget_; }

private:
    std::recursive_mutex mutex_;
    bool capsAreValid_ = false;
    bool isOpen_ = false;
    MIDIINCAPSW caps_{};
    HMIDIIN handle_ = nullptr;  // null unless open
    void* const callbackTarget_ = nullptr;
    bool isRunning_ = false;  // guarded by mutex_
};
