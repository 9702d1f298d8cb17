#include "player/time_code_sender.h"

#include <windows.h>

#include <mmsystem.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <stdexcept>
#include <utility>

#include "midi/midi_time_code.h"
#include "midi/midi_time_code_error.h"
#include "vemo_core/exception_log.h"
#include "zell/format.h"
#include "zell/thread_names.h"

namespace player {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr double kSecondsPerDay = 86'400;
constexpr UINT kTimerPeriodMilliseconds = 1;
// With the first piece of the span that makes up for them three at once: receivers give up
// on bursts.
constexpr std::size_t kMostMadeUp = 2;
constexpr char kSource[] = "player/Sources/time_code_sender";

double SecondsOf(const std::array<unsigned char, 4>& label, FrameRate rate) {
    try {
        return MidiTimeCode(label[0], label[1], label[2], label[3], rate).GetAsSeconds();
    } catch (const MidiTimeCodeError&) {
        throw std::invalid_argument(
            zell::format("the show cannot begin at %02d:%02d:%02d:%02d: there is no such time at %s", label[0],
                         label[1], label[2], label[3], ConvertFrameRateToString(rate)));
    }
}

SteadyClock::time_point TimePointOf(double seconds) {
    return SteadyClock::time_point(
        std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(seconds)));
}

}  // namespace

TimeCodeSender::TimeCodeSender(const Settings& settings)
    : virtualTime_(settings.virtualTime),
      observer_(settings.observer),
      start_(settings.start),
      rate_(settings.frameRate),
      startSeconds_(SecondsOf(start_, rate_)) {
    SetFrameRate(rate_);
    if (!virtualTime_)
        Start();
}

TimeCodeSender::~TimeCodeSender() {
    if (!virtualTime_)
        Stop();
}

void TimeCodeSender::SetOutputPortIndex(unsigned int device) {
    if (virtualTime_)
        return;
    // A device that is open may be taken: the same one is closed first.
    std::unique_ptr<TimeCodePort> old;
    {
        const std::lock_guard lock(portMutex_);
        if (device_ == device)
            old.swap(port_);
    }
    old.reset();
    auto port = std::make_unique<TimeCodePort>(device);
    {
        const std::lock_guard lock(portMutex_);
        port_.swap(port);
        device_ = device;
    }
    port.reset();
    const std::lock_guard lock(mutex_);
    SetFrameRate(rate_);
    nextPlace_ = -1;
}

bool TimeCodeSender::IsPortWorking() const {
    const std::lock_guard lock(portMutex_);
    return port_ && port_->GetState() == TimeCodePort::State::kWorking;
}

void TimeCodeSender::SetActive(bool active) {
    const std::lock_guard lock(mutex_);
    if (active == std::exchange(isActive_, active))
        return;
    DropPending();
    SetFrameRate(rate_);  // the next span begins with a full frame
    nextPlace_ = -1;
}

void TimeCodeSender::ChangeFrameRate(FrameRate frameRate) {
    const std::lock_guard lock(mutex_);
    const double startSeconds = SecondsOf(start_, frameRate);
    DropPending();
    rate_ = frameRate;
    startSeconds_ = startSeconds;
    nextPlace_ = -1;
    SetFrameRate(frameRate);
}

double TimeCodeSender::OnDay(double seconds) const {
    return std::fmod(seconds + startSeconds_ + kBorderSeconds, kSecondsPerDay);
}

void TimeCodeSender::Play(double seconds, double nextSeconds, double clockSeconds) {
    const std::lock_guard lock(mutex_);
    place_ = seconds;
    nextPlace_ = nextSeconds;
    if (!isActive_)
        return;
    if (virtualTime_)
        SendDuePieces(std::chrono::duration<double>(virtualTime_()).count());
    spanEnd_ = GetCurrentSeconds() + clockSeconds;
    SetMidiTimeCodeInterval(OnDay(seconds), OnDay(nextSeconds), clockSeconds);
}

void TimeCodeSender::Locate(double seconds) {
    const std::lock_guard lock(mutex_);
    place_ = seconds;
    if (!isActive_)
        return;
    if (virtualTime_)
        SendDuePieces(std::chrono::duration<double>(virtualTime_()).count());
    const std::size_t pending = CountPendingPieces();
    DropPending();
    // The pieces up to the end of the latest span would be made up for when play goes on.
    // Where it goes on elsewhere, or they are too many at once, whoever follows must not
    // see them.
    if (seconds != nextPlace_ || pending > kMostMadeUp)
        SetFrameRate(rate_);
    SendMidiTimeCodeWithSeconds(OnDay(seconds));
}

/// Of the latest span, that have not been sent.
std::size_t TimeCodeSender::CountPendingPieces() {
    const std::lock_guard lock(timeCodeMutex_);
    if (!isSendingFutureMessages_ || quarterFrameInterval_ <= 0)
        return 0;
    return static_cast<std::size_t>(
        std::max(0LL, std::llround((spanEnd_ - nextQuarterFrameTime_) / quarterFrameInterval_)));
}

void TimeCodeSender::DropPending() {
    CancelFutureQuarterFrameMessages();
    const std::lock_guard lock(portMutex_);
    if (port_)
        port_->Drop();
}

TimeCodeSender::State TimeCodeSender::GetState() const {
    {
        const std::lock_guard lock(mutex_);
        if (!isActive_)
            return State::kOff;
    }
    if (virtualTime_)
        return State::kOn;
    return IsPortWorking() ? State::kOn : State::kLost;
}

std::string TimeCodeSender::GetLabel() const {
    const std::lock_guard lock(mutex_);
    return MidiTimeCode(OnDay(place_), rate_).GetAsString();
}

FrameRate TimeCodeSender::GetRate() const {
    const std::lock_guard lock(mutex_);
    return rate_;
}

void TimeCodeSender::SendQuarterFrameMessages(const std::vector<QuarterFrameMessage>& messages) {
    for (const QuarterFrameMessage& message : messages)
        Send(message.Get(), QuarterFrameMessage::kSize);
}

void TimeCodeSender::SendFullFrameMessage(FullFrameMessage message) {
    Send(message.Get(), FullFrameMessage::kSize);
}

void TimeCodeSender::Send(const std::uint8_t* bytes, std::size_t count) {
    try {
        if (observer_)
            observer_(bytes, count, std::chrono::nanoseconds(std::llround(GetCurrentSeconds() * 1e9)));
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    }
    const std::lock_guard lock(portMutex_);
    if (port_)
        port_->Send(bytes, count);
}

double TimeCodeSender::GetCurrentSeconds() {
    if (virtualTime_)
        return virtualNow_;
    return std::chrono::duration<double>(SteadyClock::now().time_since_epoch()).count();
}

// ---- the pieces that are spread over a span

void TimeCodeSender::CancelTimer() {
    const std::lock_guard lock(timerMutex_);
    timerIsCancelled_ = true;
    timerCondition_.notify_all();
}

void TimeCodeSender::Run() {
    zell::threadNames.SetNameOfCurrentThread("time_code");
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
    timeBeginPeriod(kTimerPeriodMilliseconds);
    for (;;) {
        {
            std::unique_lock timer(timerMutex_);
            timerCondition_.wait(timer, [this] { return !isRunning_ || isSendingFutureMessages_; });
            timerIsCancelled_ = false;
        }
        if (!isRunning_)
            break;
        double due = 0;
        {
            const std::lock_guard lock(timeCodeMutex_);
            due = nextQuarterFrameTime_;
        }
        bool isDue = false;
        {
            std::unique_lock timer(timerMutex_);
            isDue = !timerCondition_.wait_until(timer, TimePointOf(due),
                                                [this] { return !isRunning_ || timerIsCancelled_; });
        }
        if (isDue)
            SendPieceDueAt(due);
    }
    timeEndPeriod(kTimerPeriodMilliseconds);
}

/// False where it is no longer wanted. The next one is due an interval after this one was
/// due, so that being late does not add up.
bool TimeCodeSender::SendPieceDueAt(double due) {
    const std::lock_guard lock(timeCodeMutex_);
    if (!isSendingFutureMessages_ || nextQuarterFrameTime_ != due)
        return false;
    QuarterFrameMessageTimerCallback();
    nextQuarterFrameTime_ = due + quarterFrameInterval_;
    return true;
}

void TimeCodeSender::SendDuePieces(double now) {
    const std::lock_guard lock(timeCodeMutex_);
    while (isSendingFutureMessages_ && nextQuarterFrameTime_ <= now) {
        virtualNow_ = nextQuarterFrameTime_;
        SendPieceDueAt(nextQuarterFrameTime_);
    }
    virtualNow_ = now;
}

}  // namespace player
