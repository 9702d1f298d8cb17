#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "header_queue.h"
#include "input_devices.h"
#include "midi_byte_parser.h"

namespace win32_layer {

/// The open MIDI inputs: takes the bytes of their devices apart and calls back.
///
/// Owner:   the process; Instance().
/// Threads: any. Each input has a thread of its own, which calls back. MIM_OPEN, MIM_CLOSE
///          and the buffers that Stop() and Reset() give back arrive on the thread of the
///          call instead; callbacks of one input never overlap, but for those that a
///          callback sets off itself.
/// Lock:    mutex_, which also guards the flags of every header that an input holds.
///          No device and no callback runs under it. Devices take it in their sinks.
/// Errors:  the platform's results. A handle is never used again, so one that was
///          closed stays MMSYSERR_INVALHANDLE. What a program is too slow to take is
///          dropped beyond a bound: the messages after it are whole, and before them the
///          program is told, by MIM_ERROR with the first short message of those that were
///          dropped, and by MIM_LONGERROR with a buffer for a system-exclusive one.
class MidiInputs {
public:
    using Callback = void(CALLBACK*)(HMIDIIN, UINT, DWORD_PTR, DWORD_PTR, DWORD_PTR);

    struct Totals {
        int openInputs = 0;
        int preparedHeaders = 0;
        int queuedHeaders = 0;
    };

    static MidiInputs& Instance();

    /// callback may be null. MIM_OPEN arrives on the calling thread.
    MMRESULT Open(HMIDIIN& handle, UINT device, Callback callback, DWORD_PTR instance);
    /// Refused while buffers are queued. Waits for a running callback, but not on that
    /// callback's own thread, then MIM_CLOSE on the calling thread.
    MMRESULT Close(HMIDIIN handle);
    MMRESULT Start(HMIDIIN handle);
    /// What has not been delivered is dropped; a buffer that is partly filled comes back.
    MMRESULT Stop(HMIDIIN handle);
    /// Stops, gives back every buffer, and waits for a running callback as Close() does.
    MMRESULT Reset(HMIDIIN handle);
    MMRESULT Prepare(HMIDIIN handle, LPMIDIHDR header, UINT headerBytes);
    MMRESULT Unprepare(HMIDIIN handle, LPMIDIHDR header, UINT headerBytes);
    MMRESULT AddBuffer(HMIDIIN handle, LPMIDIHDR header, UINT headerBytes);
    /// Null for a handle that is not open.
    std::shared_ptr<InputDevices::Place> GetPlace(HMIDIIN handle) const;

    /// Counts prepared headers from 0 again where no input is open.
    void Reset();
    Totals GetTotals() const;

private:
    using Lock = std::unique_lock<std::mutex>;

    /// What was dropped, of messages that came one after the other.
    struct Loss {
        bool hasSysEx = false;
        std::optional<DWORD> shortMessage;  // the first, as MIM_DATA has it
    };
    /// Bytes that came together, or none where some were dropped.
    struct Arrival {
        std::vector<std::uint8_t> bytes;
        DWORD time;        // milliseconds since the start
        bool isBehindGap;  // must not be joined on to what came before
        std::optional<Loss> loss;
    };
    struct Input {
        HMIDIIN handle = nullptr;     // set before the input is known to anyone,
        Callback callback = nullptr;  // like the next three
        DWORD_PTR instance = 0;
        std::shared_ptr<InputDevices::Place> place;
        std::thread thread;
        // Guarded by mutex_.
        bool isStarted = false;
        std::uint64_t start = 0;  // how often it was started
        std::chrono::nanoseconds startTime{0};
        bool finish = false;  // the thread has to end
        std::deque<Arrival> arrivals;
        std::size_t arrivedBytes = 0;
        bool hasGap = false;  // the next arrival is behind one
        HeaderQueue buffers;  // empty
        LPMIDIHDR filling = nullptr;
        HeaderQueue returning;       // by a reset
        bool busy = false;           // a callback runs
        std::thread::id busyThread;  // on which thread
        std::condition_variable changed;
        // The thread's own.
        MidiByteParser parser;
        bool discardsSysEx = false;  // of the message that is coming in
    };

    std::shared_ptr<Input> Find(HMIDIIN handle) const;
    void Arrive(Input& input, const std::uint8_t* bytes, std::size_t count);
    static void KeepLoss(Input& input, const std::uint8_t* bytes, std::size_t count, DWORD time);
    void Run(const std::shared_ptr<Input>& input);
    /// From here on called with mutex_ held by lock, which is given up while a callback
    /// runs. What calls back is called where no callback runs but for one that this
    /// thread is in.
    void Parse(Input& input, const Arrival& arrival, Lock& lock);
    void TakeSysExByte(Input& input, std::uint8_t byte, DWORD time, Lock& lock);
    void ReturnFilling(Input& input, UINT message, DWORD time, Lock& lock);
    void GiveBack(Input& input, LPMIDIHDR header, UINT message, DWORD time, Lock& lock);
    void Call(Input& input, UINT message, DWORD_PTR parameter, DWORD time, Lock& lock);
    void Drop(Input& input);
    /// For the input's own thread, while another gives buffers back. False where the
    /// input was stopped since that start: nothing may be called any more.
    static bool AwaitTurn(Input& input, std::uint64_t start, Lock& lock);
    static void WaitForCallback(Input& input, Lock& lock);
    static DWORD TimeOf(const Input& input, std::chrono::nanoseconds time);

    mutable std::mutex mutex_;
    std::map<HMIDIIN, std::shared_ptr<Input>> inputs_;
    DWORD_PTR lastHandle_ = 0x20000000;
    Totals totals_;
};

}  // namespace win32_layer
