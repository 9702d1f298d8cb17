#pragma once

#include <windows.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "midi/vemo_midi_export.h"

/// Holds the downbeats of the display back by the latency of the sound, so that
/// the display changes when the beat is heard.
///
/// Owner:   MidiOutputWin32.
/// Threads: SignalDelayedCallback() on the clock thread and Reset() there and on
///          host threads; neither blocks. The callback runs on the thread of this
///          object with no lock held, and never once destruction has begun.
/// Lock:    mutex_; conditionMutex_ before it.
/// Units:   seconds; ticks.
/// Errors:  what the callback throws is logged and ends the thread; later signals
///          stay unseen.
class VEMO_MIDI_EXPORT DelayedGui {
public:
    DelayedGui(std::function<void(std::uint32_t tickIndex)> callback, double secondsDelay);
    ~DelayedGui();
    DelayedGui(const DelayedGui&) = delete;
    DelayedGui& operator=(const DelayedGui&) = delete;

    /// The delay runs from when the thread takes the entry up: entries that queue
    /// up arrive one per delay, oldest first.
    void SignalDelayedCallback(std::uint32_t tickIndex);
    /// Takes the oldest entry; false when there is none.
    bool GetNextTickIndex(std::uint32_t* tickIndex);
    bool HasScheduledCallbacks();
    /// Drops what has not been delivered. What is signalled afterwards gets its
    /// whole delay.
    void Reset();
    double GetSecondsDelay();
    /// From the next entry on.
    void SetSecondsDelay(double secondsDelay);
    void RunLoop();

private:
    bool GetShouldRun();
    /// Starts the timer for the oldest entry; false when the thread must end.
    bool StartTimer(std::uint64_t* resets);
    /// The entry whose delay has run out, unless it was dropped meanwhile.
    bool TakeDueTickIndex(std::uint64_t resets, std::uint32_t* tickIndex);
    bool PopTickIndex(std::uint32_t* tickIndex);
    void RunThread();

    const std::function<void(std::uint32_t)> callback_;
    HANDLE timer_ = nullptr;

    std::mutex mutex_;
    // Guarded by mutex_.
    bool shouldRun_ = true;
    double secondsDelay_;
    std::uint64_t resets_ = 0;
    // Oldest first. A vector keeps its storage, so that the clock thread does not
    // allocate; it holds a handful of entries.
    std::vector<std::uint32_t> scheduledTickIndices_;

    std::mutex conditionMutex_;
    std::condition_variable condition_;
    std::thread thread_;
};
