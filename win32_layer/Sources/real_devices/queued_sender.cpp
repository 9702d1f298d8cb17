#include "queued_sender.h"

#include <algorithm>
#include <utility>

namespace win32_layer {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kRoomStep = 1ms;
constexpr auto kTimeForShortOnes = 500ms;
constexpr std::uint8_t kSysExStart = 0xF0;
constexpr std::uint8_t kSysExEnd = 0xF7;
constexpr std::uint8_t kFirstRealTime = 0xF8;

/// Whole, that is: not the end of a dump in several buffers, nor its beginning.
bool IsShort(const std::vector<std::uint8_t>& message) {
    return message.size() <= kShortMessageBytes && message.front() >= 0x80 && message.front() != kSysExEnd &&
           (message.front() != kSysExStart || message.back() == kSysExEnd);
}

}  // namespace

QueuedSender::QueuedSender(std::string name, Say say) : name_(std::move(name)), say_(std::move(say)) {}

void QueuedSender::Add(const std::uint8_t* bytes, std::size_t count) {
    const std::lock_guard lock(mutex_);
    if (finishBy_)
        return;
    if (!queue_.Push(bytes, count))
        ++lost_;
    changed_.notify_all();
}

void QueuedSender::Close(Time finishBy) {
    const std::lock_guard lock(mutex_);
    finishBy_ = finishBy;
    changed_.notify_all();
}

void QueuedSender::Run(MessagePort& port) {
    std::vector<std::uint8_t> message;
    message.reserve(MessageQueue::kBytes);
    while (WaitForMessage(message)) {
        if (!SendMessage(port, message)) {
            if (port.IsConnected())
                SendShortOnes(port, message);
            return;
        }
        TellLosses(true);
    }
    WaitUntilLeft(port);
}

/// False where there will be none.
bool QueuedSender::WaitForMessage(std::vector<std::uint8_t>& message) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !queue_.IsEmpty() || finishBy_; });
    if (queue_.IsEmpty())
        return false;
    queue_.Pop(message);
    return true;
}

bool QueuedSender::SendMessage(MessagePort& port, const std::vector<std::uint8_t>& message) {
    // Whatever it begins with: a dump in several buffers goes on with data alone.
    const std::size_t longest = port.GetLongestPiece();
    for (std::size_t sent = 0; sent < message.size();) {
        const std::size_t piece = std::min(longest, message.size() - sent);
        if (!WaitForRoom(port, piece))
            return false;
        std::string complaint = port.Send(message.data() + sent, piece);
        if (!complaint.empty() && complaint != latestComplaint_)
            say_("MIDI output '" + name_ + "': " + complaint);
        latestComplaint_ = std::move(complaint);
        for (std::size_t i = sent; i < sent + piece; ++i)
            if (message[i] >= 0x80 && message[i] < kFirstRealTime)
                isInSysEx_ = message[i] == kSysExStart;
        sent += piece;
    }
    return true;
}

bool QueuedSender::WaitForRoom(MessagePort& port, std::size_t count) {
    const auto isOver = [&] { return finishBy_ && *finishBy_ < SteadyClock::now(); };
    while (port.IsConnected()) {
        if (port.IsReadyFor(count))
            return true;
        TellLosses(false);
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kRoomStep, isOver);
        if (isOver())
            return false;
    }
    // Until it is removed: nobody shall wait for it meanwhile.
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return finishBy_.has_value(); });
    return false;
}

/// message: the one for which the time was too short.
void QueuedSender::SendShortOnes(MessagePort& port, std::vector<std::uint8_t>& message) {
    {
        const std::lock_guard lock(mutex_);
        *finishBy_ += kTimeForShortOnes;
    }
    std::uint64_t unsent = 0;
    // A receiver that waits for the rest of a dump would take the notes' ends for data, or drop them.
    bool takesThem = !isInSysEx_ || SendMessage(port, {kSysExEnd});
    do {
        if (!takesThem || !IsShort(message)) {
            ++unsent;
            continue;
        }
        // Not a later one where an earlier one was left: it could be a note whose end is lost.
        takesThem = SendMessage(port, message);
        unsent += takesThem ? 0 : 1;
    } while (WaitForMessage(message));
    WaitUntilLeft(port);
    {
        const std::lock_guard lock(mutex_);
        unsent += lost_;
    }
    if (unsent > 0)
        say_("MIDI output '" + name_ + "' was closed too soon for it: " + std::to_string(unsent) +
             " messages not sent");
}

void QueuedSender::WaitUntilLeft(const MessagePort& port) {
    while (!port.HasLeft()) {
        std::unique_lock lock(mutex_);
        if (SteadyClock::now() >= *finishBy_)
            return;
        changed_.wait_for(lock, kRoomStep);
    }
}

void QueuedSender::TellLosses(bool hasCaughtUp) {
    std::uint64_t losses = 0;
    {
        const std::lock_guard lock(mutex_);
        losses = lost_;
        hasCaughtUp = hasCaughtUp && queue_.IsEmpty();
        if (hasCaughtUp)
            lost_ = 0;
    }
    if (losses > 0 && !lossIsTold_)
        say_("MIDI output '" + name_ + "' takes no more: what is sent to it is lost");
    lossIsTold_ = losses > 0;
    if (losses > 0 && hasCaughtUp) {
        say_("MIDI output '" + name_ + "' takes messages again; " + std::to_string(losses) + " were lost");
        lossIsTold_ = false;
    }
}

}  // namespace win32_layer
