#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "header_queue.h"
#include "output_devices.h"
#include "win32_layer/layer.h"

namespace win32_layer {

/// The open MIDI streams and plain MIDI outputs: takes buffers, plays them on their
/// devices and gives them back.
///
/// Owner:   the process; Instance().
/// Threads: any. Each stream has a thread of its own, which plays its buffers and
///          calls back; with inline delivery the calling thread does both. Either
///          way one thread at a time works on a stream.
/// Lock:    mutex_, which also guards the flags of every header that a stream
///          holds. No device, observer, time source or callback runs under it.
/// Errors:  the platform's results. A handle is never used again, so one that was
///          closed stays MMSYSERR_INVALHANDLE.
class MidiStreams {
public:
    struct Totals {
        int openStreams = 0;
        int preparedHeaders = 0;
        int queuedHeaders = 0;
        std::uint64_t streamOuts = 0;
        std::uint64_t doneCallbacks = 0;
    };

    enum class Kind {
        kStream,  // buffers hold stream events, and wait for Restart()
        kOutput   // buffers hold the bytes of system-exclusive messages, and play at once
    };

    static MidiStreams& Instance();

    /// callback may be null. MOM_OPEN arrives on the calling thread.
    MMRESULT Open(HMIDISTRM& handle, Kind kind, UINT device, LPMIDICALLBACK callback, DWORD_PTR instance);
    /// Gives back what is queued, waits for a running callback (not on that
    /// callback's own thread), then MOM_CLOSE on the calling thread.
    MMRESULT Close(HMIDISTRM handle);
    MMRESULT Prepare(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes);
    MMRESULT Unprepare(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes);
    MMRESULT Out(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes);
    /// The same for a plain output: header holds bytes.
    MMRESULT OutBytes(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes);
    /// Plays one message on the calling thread, once what plays before it is over.
    MMRESULT OutShort(HMIDISTRM handle, DWORD message);
    /// Gives back what is queued and ends every note. Does not pause.
    MMRESULT ResetOutput(HMIDISTRM handle);
    /// Whether a plain output, which refuses to close then, has buffers queued.
    bool HasQueuedHeaders(HMIDISTRM handle) const;
    MMRESULT Restart(HMIDISTRM handle);
    /// Pauses, and gives back what is queued; waits for these returns, but not
    /// where they are delayed, not on the callback's thread, and never for long: a
    /// callback may itself wait for something that the caller holds.
    MMRESULT Stop(HMIDISTRM handle);
    /// Null for a handle that is not open.
    std::shared_ptr<OutputDevices::Place> GetPlace(HMIDISTRM handle) const;

    void SetDelivery(Delivery delivery);
    void SetObserver(Layer::Observer observer);
    void HoldBuffers(int count);
    void ReleaseHeldBuffers();
    void DelayReturns(std::chrono::milliseconds delay);
    /// All settings as at the start, held buffers released, calls counted from 0;
    /// prepared headers too, where no stream is open.
    void Reset();
    Totals GetTotals() const;

private:
    using Lock = std::unique_lock<std::mutex>;
    using Time = HeaderQueue::Time;

    struct Stream {
        HMIDISTRM handle = nullptr;         // set before the stream is known to anyone,
        LPMIDICALLBACK callback = nullptr;  // like the next four
        Kind kind = Kind::kStream;
        DWORD_PTR instance = 0;
        std::shared_ptr<OutputDevices::Place> place;
        std::thread thread;
        // Guarded by mutex_.
        bool paused = true;
        bool closed = false;
        bool finish = false;    // the thread has to end
        HeaderQueue waiting;    // to be played
        HeaderQueue held;       // kept back on a test's demand
        HeaderQueue returning;  // to be given back, when due
        LPMIDIHDR playing = nullptr;
        bool busy = false;           // a thread plays or calls back
        std::thread::id busyThread;  // which
        int inlineCallers = 0;       // threads in calls that deliver inline; the stream's own keeps back
        std::condition_variable changed;
    };

    std::shared_ptr<Stream> Find(HMIDISTRM handle) const;
    void Run(const std::shared_ptr<Stream>& stream);
    /// Everything from here on is called with mutex_ held by lock and gives it up
    /// while a device or a callback runs.
    static bool HasWork(const Stream& stream);
    void WorkOnce(Stream& stream, Lock& lock);
    bool Play(Stream& stream, LPMIDIHDR header, Lock& lock);
    void GiveBack(Stream& stream, LPMIDIHDR header, Lock& lock);
    /// Works off what can be worked off, on this thread; not where this thread is
    /// already at work further up its stack, which then goes on.
    void WorkInline(Stream& stream, Lock& lock);
    void LetWork(Stream& stream, Lock& lock);
    void Observe(const MIDIHDR& header, Lock& lock);
    MMRESULT Enqueue(Stream& stream, LPMIDIHDR header, Lock& lock);
    void ReturnQueued(Stream& stream, Lock& lock);
    /// Without the lock, by whoever has the stream busy.
    static void PlayBytes(Stream& stream, const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time);

    mutable std::mutex mutex_;
    std::map<HMIDISTRM, std::shared_ptr<Stream>> streams_;
    DWORD_PTR lastHandle_ = 0x10000;
    Delivery delivery_ = Delivery::kThread;
    // Shared, so that a call can use it without the lock and without a copy of the
    // function, which might allocate.
    std::shared_ptr<const Layer::Observer> observer_;
    int buffersToHold_ = 0;
    std::chrono::milliseconds returnDelay_{0};
    Totals totals_;
};

}  // namespace win32_layer
