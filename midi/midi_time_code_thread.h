#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "midi/frame_rate.h"
#include "midi/full_frame_message.h"
#include "midi/midi_time_code.h"
#include "midi/quarter_frame_message.h"
#include "midi/vemo_midi_export.h"

/// Turns the place of the playback into a stream of MIDI Time Code: quarter
/// frames spread over each span of play, and a full frame where the place jumps.
/// The port, the clock and the loop that keeps the time belong to a subclass.
///
/// Owner:   whoever sends time code. The subclass calls Stop() before it is
///          destroyed.
/// Threads: SetMidiTimeCodeInterval once per span from one thread at a time; the
///          loop calls QuarterFrameMessageTimerCallback; the rest from any.
/// Lock:    timeCodeMutex_, then timerMutex_. The subclass's sending functions
///          and GetCurrentSeconds are called with the former held.
/// Units:   seconds of time code and of the subclass's clock.
/// Errors:  what the subclass's functions throw passes through; what Run throws
///          is logged and ends the loop.
class VEMO_MIDI_EXPORT MidiTimeCodeThread {
public:
    MidiTimeCodeThread();
    virtual ~MidiTimeCodeThread();
    MidiTimeCodeThread(const MidiTimeCodeThread&) = delete;
    MidiTimeCodeThread& operator=(const MidiTimeCodeThread&) = delete;

    /// May throw VemoMidiError.
    virtual void SetOutputPortIndex(unsigned int portIndex) = 0;

    /// Play now goes from currentSeconds of time code to nextSeconds and takes
    /// intervalSeconds of real time for it. What is still pending of the span
    /// before is sent at once. A full frame is sent where the span does not begin
    /// at the place reached, and with the first span since construction or a
    /// change of the rate. A span that ends before the place reached, or in the
    /// same quarter frame, sends nothing more. Seconds of 24 hours and more begin
    /// at zero again.
    void SetMidiTimeCodeInterval(double currentSeconds, double nextSeconds, double intervalSeconds);
    /// Sends the full frame of a place at which nothing plays.
    void SendMidiTimeCodeWithSeconds(double seconds);
    /// Drops what is pending.
    void SetFrameRate(FrameRate frameRate);
    FrameRate GetFrameRate();

protected:
    /// The loop must stop calling QuarterFrameMessageTimerCallback until more is
    /// scheduled. May come with timeCodeMutex_ held and on the loop's own thread:
    /// it may take timerMutex_ and must wait for nothing.
    virtual void CancelTimer() = 0;
    /// Sends the messages in order, now.
    virtual void SendQuarterFrameMessages(const std::vector<QuarterFrameMessage>& messages) = 0;
    virtual void SendFullFrameMessage(FullFrameMessage message) = 0;
    /// The loop: waits on timerCondition_ until isSendingFutureMessages_, calls
    /// QuarterFrameMessageTimerCallback at nextQuarterFrameTime_ and every
    /// quarterFrameInterval_ from then on, and returns once isRunning_ is false.
    /// It holds timerMutex_ neither while it calls nor while it reads the times.
    virtual void Run() = 0;
    virtual double GetCurrentSeconds() = 0;

    /// Not to be called again before Stop().
    void Start();
    /// Waits for the loop to return. Not from the loop.
    void Stop();
    /// Sends one message, if any is still due in this span.
    void QuarterFrameMessageTimerCallback();
    void SendFutureQuarterFrameMessages(double intervalSeconds);
    void CancelFutureQuarterFrameMessages();
    void SendMidiTimeCode(const MidiTimeCode& timeCode);

private:
    QuarterFrameMessage GetNextQuarterFrameMessage();
    void IncrementQuarterFrameMessageIndex();
    void SendNextQuarterFrame();
    /// Moves to a place off the one reached, by a full frame and the pieces up to
    /// the quarter frame within it.
    void JumpTo(const MidiTimeCode& start);
    void WakeLoop();
    void RunGuarded();

protected:
    std::recursive_mutex timeCodeMutex_;

private:
    // Guarded by timeCodeMutex_.
    FrameRate frameRate_ = FrameRate::k30;
    MidiTimeCode messageTimeCode_;  // what the eight pieces on their way tell
    MidiTimeCode currentTimeCode_;  // one quarter frame on with each piece
    MidiTimeCode targetTimeCode_;   // where the span ends
    unsigned char quarterFrameMessageIndex_ = 0;

protected:
    // Guarded by timeCodeMutex_; on the clock of GetCurrentSeconds().
    double nextQuarterFrameTime_ = 0.0;
    double quarterFrameInterval_ = 0.0;
    // Written under timeCodeMutex_; the loop reads them under timerMutex_, which
    // every wake-up passes through after they were written.
    std::atomic<bool> isRunning_{false};
    std::atomic<bool> isSendingFutureMessages_{false};

private:
    bool nextSpanJumps_ = true;  // guarded by timeCodeMutex_

protected:
    std::mutex timerMutex_;
    std::condition_variable timerCondition_;

private:
    std::thread thread_;  // between Start() and Stop(), by whoever calls these
};
