#pragma once

#include <atomic>
#include <thread>

#include "midi/vemo_midi_export.h"

class MidiOutput;
class MidiThreadManager;

/// The thread that keeps the ring of cycle buffers filled ahead of the clock by
/// calling the host's fill callback.
///
/// Owner:   MidiOutput, which joins it before its own members die.
/// Threads: Exit() and Join() on a host thread.
/// Errors:  what the fill callback throws is logged and ends the thread; nothing
///          restarts it, and no disarm waits for it any more.
class VEMO_MIDI_EXPORT MidiQueueThread {
public:
    MidiQueueThread(MidiOutput& output, MidiThreadManager& threadManager);
    ~MidiQueueThread();
    MidiQueueThread(const MidiQueueThread&) = delete;
    MidiQueueThread& operator=(const MidiQueueThread&) = delete;

    void Run();
    bool ShouldRun() const { return !exit_; }
    void Exit() { exit_ = true; }
    /// Returns once the thread has ended, wherever it was; again at once.
    void Join();

private:
    void RunThread();

    MidiOutput& output_;
    MidiThreadManager& threadManager_;
    std::atomic<bool> exit_{false};
    std::atomic<bool> joined_{false};
    std::thread thread_;
};
