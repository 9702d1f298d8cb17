#include "midi/midi_time_code_thread.h"

#include <cmath>
#include <cstdint>
#include <exception>

#include "vemo_core/exception_log.h"

namespace {

// A time code of 24 hours would never be reached by stepping, which goes back to zero.
double WithinDay(double seconds) {
    constexpr double kDay = 86400.0;
    if (seconds >= 0.0 && seconds < kDay)
        return seconds;
    return std::isfinite(seconds) && seconds > 0.0 ? std::fmod(seconds, kDay) : 0.0;
}

// Where every report of this loop says it was caught.
constexpr int kGuardLine = 61;

}  // namespace

MidiTimeCodeThread::MidiTimeCodeThread() = default;
MidiTimeCodeThread::~MidiTimeCodeThread() = default;

void MidiTimeCodeThread::SetMidiTimeCodeInterval(double currentSeconds, double nextSeconds, double intervalSeconds) {
    CancelFutureQuarterFrameMessages();
    const std::lock_guard lock(timeCodeMutex_);
    std::vector<QuarterFrameMessage> missed;
    while (currentTimeCode_ < targetTimeCode_)
        missed.push_back(GetNextQuarterFrameMessage());
    if (!missed.empty())
        SendQuarterFrameMessages(missed);

    const MidiTimeCode start(WithinDay(currentSeconds), frameRate_);
    if (nextSpanJumps_ || start != currentTimeCode_)
        JumpTo(start);

    targetTimeCode_.SetFromSeconds(WithinDay(nextSeconds));
    const bool endsBefore = targetTimeCode_ < currentTimeCode_;
    const std::uint64_t count = endsBefore ? 0 : targetTimeCode_.GetDifferenceAsQuarterFrameCount(currentTimeCode_);
    if (count >= 1)
        SendNextQuarterFrame();
    // Where labels were dropped within the span the count is too high: the pieces
    // follow one another faster, and there may be none left by now.
    if (count >= 2 && currentTimeCode_ < targetTimeCode_)
        SendFutureQuarterFrameMessages(intervalSeconds / static_cast<double>(count));
}

void MidiTimeCodeThread::JumpTo(const MidiTimeCode& start) {
    nextSpanJumps_ = false;
    currentTimeCode_ = start;
    currentTimeCode_.SetQuarterFrameIndex(0);
    messageTimeCode_ = currentTimeCode_;
    quarterFrameMessageIndex_ = 0;
    SendFullFrameMessage(currentTimeCode_.GetFullFrameMessage());
    std::vector<QuarterFrameMessage> messages;
    while (currentTimeCode_ != start)
        messages.push_back(GetNextQuarterFrameMessage());
    if (!messages.empty())
        SendQuarterFrameMessages(messages);
}

void MidiTimeCodeThread::SendMidiTimeCodeWithSeconds(double seconds) {
    SendMidiTimeCode(MidiTimeCode(WithinDay(seconds), GetFrameRate()));
}

void MidiTimeCodeThread::SetFrameRate(FrameRate frameRate) {
    const std::lock_guard lock(timeCodeMutex_);
    isSendingFutureMessages_ = false;
    frameRate_ = frameRate;
    const MidiTimeCode zero(0.0, frameRate);
    messageTimeCode_ = zero;
    currentTimeCode_ = zero;
    targetTimeCode_ = zero;
    nextSpanJumps_ = true;
}

FrameRate MidiTimeCodeThread::GetFrameRate() {
    const std::lock_guard lock(timeCodeMutex_);
    return frameRate_;
}

void MidiTimeCodeThread::Start() {
    {
        const std::lock_guard lock(timeCodeMutex_);
        isRunning_ = true;
    }
    thread_ = std::thread([this] { RunGuarded(); });
}

void MidiTimeCodeThread::Stop() {
    {
        const std::lock_guard lock(timeCodeMutex_);
        isRunning_ = false;
    }
    WakeLoop();
    CancelTimer();
    if (thread_.joinable())
        thread_.join();
}

void MidiTimeCodeThread::RunGuarded() {
    try {
        Run();
    } catch (const std::exception& error) {
        VemoLogException(error.what(), "midi/Sources/mtc_thread", kGuardLine);
    } catch (...) {
        VemoLogException("Unknown exception.", "midi/Sources/mtc_thread", kGuardLine);
    }
}

void MidiTimeCodeThread::QuarterFrameMessageTimerCallback() {
    const std::lock_guard lock(timeCodeMutex_);
    if (!isSendingFutureMessages_)
        return;
    SendNextQuarterFrame();
    if (!(currentTimeCode_ < targetTimeCode_))
        CancelFutureQuarterFrameMessages();
}

void MidiTimeCodeThread::SendFutureQuarterFrameMessages(double intervalSeconds) {
    const std::lock_guard lock(timeCodeMutex_);
    nextQuarterFrameTime_ = GetCurrentSeconds() + intervalSeconds;
    quarterFrameInterval_ = intervalSeconds;
    isSendingFutureMessages_ = true;
    WakeLoop();
}

void MidiTimeCodeThread::CancelFutureQuarterFrameMessages() {
    {
        const std::lock_guard lock(timeCodeMutex_);
        isSendingFutureMessages_ = false;
    }
    CancelTimer();
}

void MidiTimeCodeThread::SendMidiTimeCode(const MidiTimeCode& timeCode) {
    const std::lock_guard lock(timeCodeMutex_);
    SendFullFrameMessage(timeCode.GetFullFrameMessage());
}

QuarterFrameMessage MidiTimeCodeThread::GetNextQuarterFrameMessage() {
    const QuarterFrameMessage message = messageTimeCode_.GetQuarterFrameMessage(quarterFrameMessageIndex_);
    IncrementQuarterFrameMessageIndex();
    currentTimeCode_.IncrementQuarterFrame();
    return message;
}

void MidiTimeCodeThread::IncrementQuarterFrameMessageIndex() {
    if (quarterFrameMessageIndex_ < 7) {
        ++quarterFrameMessageIndex_;
        return;
    }
    quarterFrameMessageIndex_ = 0;
    // What the eight pieces told took two frames to tell.
    ++messageTimeCode_;
    ++messageTimeCode_;
}

void MidiTimeCodeThread::SendNextQuarterFrame() {
    SendQuarterFrameMessages({GetNextQuarterFrameMessage()});
}

// A loop that has looked at the flags and is about to wait holds timerMutex_:
// passing through it, the signal comes once the loop waits.
void MidiTimeCodeThread::WakeLoop() {
    { const std::lock_guard lock(timerMutex_); }
    timerCondition_.notify_one();
}
