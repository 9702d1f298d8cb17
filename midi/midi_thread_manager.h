#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "midi/vemo_midi_export.h"

/// The hand-shake between whoever arms or disarms the output and its queue
/// thread: arming releases the parked thread, disarming waits until it has
/// parked.
///
/// Owner:   MidiOutput, by value; the queue thread refers to it.
/// Threads: the queue thread parks and ends, host threads and the clock thread
///          resume and wait.
/// Lock:    resumeMutex_ and waitingMutex_. MidiOutput's mutex may be held when
///          either is taken; nobody waits for MidiOutput's mutex while holding
///          waitingMutex_.
class VEMO_MIDI_EXPORT MidiThreadManager {
public:
    MidiThreadManager();
    ~MidiThreadManager();
    MidiThreadManager(const MidiThreadManager&) = delete;
    MidiThreadManager& operator=(const MidiThreadManager&) = delete;

private:
    friend class MidiOutput;
    friend class MidiQueueThread;

    /// Releases the parked queue thread.
    void Resume();
    /// Releases the queue thread for good: it never parks again.
    void ResumeToExit();
    /// Tells every waiting disarm that the queue thread has parked. The caller
    /// holds resumeMutex_.
    void SignalParked();
    /// Tells every waiting disarm that there is no queue thread any more.
    void SignalEnded();

    // Parked, or not running yet. Written under waitingMutex_ and resumeMutex_.
    std::atomic<bool> queueIsWaiting_{true};

    std::mutex resumeMutex_;
    std::condition_variable resumeCondition_;
    bool mustExit_ = false;  // guarded by resumeMutex_

    std::mutex waitingMutex_;
    std::condition_variable waitingCondition_;
    // Guarded by waitingMutex_. Parks are counted: a second disarm must see that
    // the thread has parked since it asked, even where the first one's caller has
    // already armed again.
    std::uint64_t parkCount_ = 0;
    bool ended_ = false;
    int waitingDisarms_ = 0;
};
