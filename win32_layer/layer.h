#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "win32_layer/midi_input_device.h"
#include "win32_layer/midi_output_device.h"
#include "win32_layer/win32_layer_export.h"

namespace win32_layer {

/// Calls that can be made to fail.
enum class Fault {
    kOpen,
    kOut,
    kRestart,
    kPrepare,
    kUnprepare,
    kDeviceCaps,
    kInputOpen,
    kInputStart,
    kInputCaps,
    kErrorText,
    kTimer,
    kWaitableTimer,
    kSetWaitableTimer,
    kWait,
    kThreadPriority
};

/// How a played buffer comes back.
enum class Delivery {
    kThread,  // MOM_DONE on the stream's own thread, as on the real platform
    kInline   // MOM_DONE inside midiStreamOut: for tests and for playing in virtual time
};

/// What happens to an output that is open.
enum class OutputChange {
    kLost,     // it was removed; what is sent to it is gone, and its buffers come back at once
    kReturned  // one of its identity was added, and has its place: it holds nothing of what was sent before
};

struct Counters {
    int openStreams = 0;
    int openInputs = 0;
    int preparedHeaders = 0;
    int queuedHeaders = 0;
    int timerPeriods = 0;       // timeBeginPeriod less timeEndPeriod
    int outstandingTimers = 0;  // timeSetEvent callbacks still to come
    std::uint64_t streamOuts = 0;
    std::uint64_t timersSet = 0;
    std::uint64_t doneCallbacks = 0;
};

/// The controls of the layer that the platform has no call for: which devices
/// exist, how buffers come back, which calls fail, and what is outstanding.
///
/// Owner:   the process; Instance().
/// Threads: any.
/// Lock:    its own, never held while a device, an observer or a callback of the
///          engine runs; but see SetOutputObserver().
class WIN32_LAYER_EXPORT Layer {
public:
    using TimeSource = std::function<std::chrono::nanoseconds()>;
    using Observer = std::function<void(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time)>;

    using OutputObserver = std::function<void(std::size_t index, OutputChange change)>;

    static Layer& Instance();

    /// Devices are listed in the order of adding, and an index keeps its meaning: one
    /// that is removed is lost and stays listed, and no other takes its place but one of
    /// its identity, which the streams that are open on it then play on. False where that
    /// one refuses to be opened for them; it is not listed then.
    bool AddOutput(std::shared_ptr<MidiOutputDevice> device);
    void RemoveOutput(const std::shared_ptr<MidiOutputDevice>& device);
    /// Those that are not lost.
    std::vector<std::shared_ptr<MidiOutputDevice>> GetOutputs() const;
    /// False beyond the list.
    bool IsOutputLost(std::size_t index) const;
    /// Hears when an output that is open is lost and returns, on the thread that removes or adds the device. No
    /// output opens, closes, comes or goes meanwhile: it must only post. No call of the one
    /// before runs or begins once this has returned; empty switches it off.
    void SetOutputObserver(OutputObserver observer);

    /// Listed as outputs are. An input that is open hears nothing when its device is
    /// removed, and a device of the same identity when that is added.
    bool AddInput(std::shared_ptr<MidiInputDevice> device);
    void RemoveInput(const std::shared_ptr<MidiInputDevice>& device);
    /// Those that are not lost.
    std::vector<std::shared_ptr<MidiInputDevice>> GetInputs() const;
    /// False beyond the list.
    bool IsInputLost(std::size_t index) const;

    void SetDelivery(Delivery delivery);
    /// Only one stream may have the device, which is listed, open at a time.
    void SetExclusive(const std::shared_ptr<MidiOutputDevice>& device, bool exclusive);

    /// What stamps the messages that are played and heard; the steady clock unless
    /// replaced.
    void SetTimeSource(TimeSource source);
    /// Sees every message as midiStreamOut takes it, on the calling thread and
    /// before any device; empty switches it off.
    void SetObserver(Observer observer);

    /// The next calls calls of that kind return code; where the platform's result
    /// is none, null, 0, FALSE or WAIT_FAILED, and GetLastError() = code.
    void Fail(Fault fault, unsigned int code, int calls);
    /// The next count buffers are taken and neither played nor returned until
    /// ReleaseHeldBuffers(), midiStreamStop or close.
    void HoldBuffers(int count);
    void ReleaseHeldBuffers();  // also ends the holding
    /// Every return comes that much later, then always on the stream's own thread;
    /// midiStreamStop does not wait for it, and close does away with it.
    void DelayReturns(std::chrono::milliseconds delay);

    Counters GetCounters() const;
    /// Blocks until no timer callback is outstanding or running, at most so long.
    bool WaitForTimers(std::chrono::milliseconds atMost);

    /// Removes every device, fault, observer, hold, delay and time source, and
    /// counts from 0 again whatever nobody holds open: what a test starts from.
    /// Streams stay open, timers set.
    void Reset();

    /// Gives the calling thread what the timer thread gives itself: least timer
    /// slack, and real-time priority where the system grants it (true).
    static bool GiveTimerPriority();

private:
    Layer() = default;
};

}  // namespace win32_layer
