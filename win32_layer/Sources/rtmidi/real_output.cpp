#include "real_output.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "message_queue.h"
#include "output_port.h"
#include "port_line.h"
#include "win32_layer/layer.h"

namespace win32_layer {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kFlushTime = 500ms;
constexpr auto kRoomStep = 1ms;

}  // namespace

class RealOutput::Line : public PortLine {
public:
    using PortLine::PortLine;

    void Add(const std::uint8_t* bytes, std::size_t count);
    /// What waits may still be sent until then.
    void Close(SteadyClock::time_point finishBy);

protected:
    void Work() override;
    void End() override { finishBy_ = SteadyClock::now(); }

private:
    void SendQueued(OutputPort& port);
    bool SendMessage(OutputPort& port, const std::vector<std::uint8_t>& message);
    bool WaitForRoom(OutputPort& port, std::size_t count);
    void TellLosses(bool hasCaughtUp);

    // Guarded by mutex_.
    MessageQueue queue_;
    std::optional<SteadyClock::time_point> finishBy_;  // empty: it goes on
    std::uint64_t lost_ = 0;                           // since the queue was last empty
    // The thread's own.
    bool lossIsTold_ = false;
    std::string latestComplaint_;
};

void RealOutput::Line::Work() {
    OutputPort port(address_);
    // Its messages are as urgent as the clock that sends them. Not before: the threads
    // that JACK's library starts with the port would inherit it.
    Layer::GiveTimerPriority();
    TellOpen();
    SendQueued(port);
}

void RealOutput::Line::SendQueued(OutputPort& port) {
    std::vector<std::uint8_t> message;
    message.reserve(MessageQueue::kBytes);
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return !queue_.IsEmpty() || finishBy_; });
            if (queue_.IsEmpty()) {
                while (!port.HasLeft() && SteadyClock::now() < *finishBy_)
                    changed_.wait_for(lock, kRoomStep);
                return;
            }
            queue_.Pop(message);
        }
        if (!SendMessage(port, message))
            return;
        TellLosses(true);
    }
}

/// False where the line has to end.
bool RealOutput::Line::SendMessage(OutputPort& port, const std::vector<std::uint8_t>& message) {
    // Whatever it begins with: a dump in several buffers goes on with data alone.
    const std::size_t longest = port.GetLongestPiece();
    for (std::size_t sent = 0; sent < message.size();) {
        const std::size_t piece = std::min(longest, message.size() - sent);
        if (!WaitForRoom(port, piece))
            return false;
        std::string complaint = port.Send(message.data() + sent, piece);
        if (!complaint.empty() && complaint != latestComplaint_)
            say_("MIDI output '" + address_.GetDisplayName() + "': " + complaint);
        latestComplaint_ = std::move(complaint);
        sent += piece;
    }
    return true;
}

bool RealOutput::Line::WaitForRoom(OutputPort& port, std::size_t count) {
    while (port.IsConnected()) {
        if (port.IsReadyFor(count))
            return true;
        TellLosses(false);
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kRoomStep, [this] { return finishBy_ && *finishBy_ < SteadyClock::now(); });
        if (finishBy_ && *finishBy_ < SteadyClock::now())
            return false;
    }
    // Until it is removed: nobody shall wait for it meanwhile.
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return finishBy_.has_value(); });
    return false;
}

void RealOutput::Line::TellLosses(bool hasCaughtUp) {
    std::uint64_t losses = 0;
    {
        const std::lock_guard lock(mutex_);
        losses = lost_;
        hasCaughtUp = hasCaughtUp && queue_.IsEmpty();
        if (hasCaughtUp)
            lost_ = 0;
    }
    if (losses > 0 && !lossIsTold_)
        say_("MIDI output '" + address_.GetDisplayName() + "' takes no more: what is sent to it is lost");
    lossIsTold_ = losses > 0;
    if (losses > 0 && hasCaughtUp) {
        say_("MIDI output '" + address_.GetDisplayName() + "' takes messages again; " + std::to_string(losses) +
             " were lost");
        lossIsTold_ = false;
    }
}

void RealOutput::Line::Add(const std::uint8_t* bytes, std::size_t count) {
    const std::lock_guard lock(mutex_);
    if (hasEnded_ || finishBy_)
        return;
    if (!queue_.Push(bytes, count))
        ++lost_;
    changed_.notify_all();
}

void RealOutput::Line::Close(SteadyClock::time_point finishBy) {
    const std::lock_guard lock(mutex_);
    finishBy_ = finishBy;
    changed_.notify_all();
}

RealOutput::RealOutput(DeviceAddress address, RealDevices::Say say)
    : address_(std::move(address)), say_(std::move(say)) {}

RealOutput::~RealOutput() = default;

std::wstring RealOutput::GetName() const {
    return address_.GetPlatformName();
}

std::string RealOutput::GetIdentity() const {
    return address_.GetIdentity();
}

bool RealOutput::Open() {
    if (openings_ > 0) {
        ++openings_;
        return true;
    }
    auto line = std::make_shared<Line>(address_, say_);
    if (!PortLine::Open(line))
        return false;
    const std::lock_guard lock(mutex_);
    line_ = std::move(line);
    openings_ = 1;
    return true;
}

void RealOutput::Close() {
    if (--openings_ > 0)
        return;
    std::shared_ptr<Line> line;
    {
        const std::lock_guard lock(mutex_);
        line.swap(line_);
    }
    line->Close(SteadyClock::now() + kFlushTime);
}

void RealOutput::Play(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds) {
    std::shared_ptr<Line> line;
    {
        const std::lock_guard lock(mutex_);
        line = line_;
    }
    if (line && count > 0)
        line->Add(bytes, count);
}

}  // namespace win32_layer
