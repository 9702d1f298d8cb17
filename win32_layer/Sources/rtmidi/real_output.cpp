#include "real_output.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "message_queue.h"
#include "output_port.h"
#include "win32_layer/layer.h"

namespace win32_layer {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kOpeningPatience = 2s;
constexpr auto kFlushTime = 500ms;
constexpr auto kRoomStep = 1ms;

std::atomic<int> lines{0};

}  // namespace

/// What the device and the thread share; the thread may outlive the device.
struct RealOutput::Line {
    Line(DeviceAddress to, RealDevices::Say sayTo) : address(std::move(to)), say(std::move(sayTo)) { ++lines; }
    ~Line() { --lines; }

    void Run();
    void Add(const std::uint8_t* bytes, std::size_t count);
    void SendQueued(OutputPort& port);
    bool SendMessage(OutputPort& port, const std::vector<std::uint8_t>& message);
    bool WaitForRoom(OutputPort& port, std::size_t count);
    void TellLosses(bool hasCaughtUp);

    const DeviceAddress address;
    const RealDevices::Say say;
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    MessageQueue queue;
    bool isOpen = false;
    bool hasEnded = false;
    std::optional<SteadyClock::time_point> finishBy;  // empty: it goes on
    std::uint64_t lost = 0;                           // since the queue was last empty
    // The thread's own.
    bool lossIsTold = false;
    std::string latestComplaint;
};

void RealOutput::Line::Run() {
    try {
        OutputPort port(address);
        // Its messages are as urgent as the clock that sends them. Not before: the threads
        // that JACK's library starts with the port would inherit it.
        Layer::GiveTimerPriority();
        {
            const std::lock_guard lock(mutex);
            isOpen = true;
            changed.notify_all();
        }
        SendQueued(port);
    } catch (const std::exception& error) {
        say("MIDI output '" + address.GetDisplayName() + "' cannot be opened: " + error.what());
    }
    const std::lock_guard lock(mutex);
    hasEnded = true;
    changed.notify_all();
}

void RealOutput::Line::SendQueued(OutputPort& port) {
    std::vector<std::uint8_t> message;
    message.reserve(MessageQueue::kBytes);
    for (;;) {
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return !queue.IsEmpty() || finishBy; });
            if (queue.IsEmpty()) {
                while (!port.HasLeft() && SteadyClock::now() < *finishBy)
                    changed.wait_for(lock, kRoomStep);
                return;
            }
            queue.Pop(message);
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
        if (!complaint.empty() && complaint != latestComplaint)
            say("MIDI output '" + address.GetDisplayName() + "': " + complaint);
        latestComplaint = std::move(complaint);
        sent += piece;
    }
    return true;
}

bool RealOutput::Line::WaitForRoom(OutputPort& port, std::size_t count) {
    while (port.IsConnected()) {
        if (port.IsReadyFor(count))
            return true;
        TellLosses(false);
        std::unique_lock lock(mutex);
        changed.wait_for(lock, kRoomStep, [this] { return finishBy && *finishBy < SteadyClock::now(); });
        if (finishBy && *finishBy < SteadyClock::now())
            return false;
    }
    // Until it is removed: nobody shall wait for it meanwhile.
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return finishBy.has_value(); });
    return false;
}

void RealOutput::Line::TellLosses(bool hasCaughtUp) {
    std::uint64_t losses = 0;
    {
        const std::lock_guard lock(mutex);
        losses = lost;
        hasCaughtUp = hasCaughtUp && queue.IsEmpty();
        if (hasCaughtUp)
            lost = 0;
    }
    if (losses > 0 && !lossIsTold)
        say("MIDI output '" + address.GetDisplayName() + "' takes no more: what is sent to it is lost");
    lossIsTold = losses > 0;
    if (losses > 0 && hasCaughtUp) {
        say("MIDI output '" + address.GetDisplayName() + "' takes messages again; " + std::to_string(losses) +
            " were lost");
        lossIsTold = false;
    }
}

void RealOutput::Line::Add(const std::uint8_t* bytes, std::size_t count) {
    const std::lock_guard lock(mutex);
    if (hasEnded || finishBy)
        return;
    if (!queue.Push(bytes, count))
        ++lost;
    changed.notify_all();
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
    try {
        std::thread([line] { line->Run(); }).detach();
    } catch (const std::exception&) {  // no thread left
        return false;
    }
    {
        std::unique_lock lock(line->mutex);
        line->changed.wait_for(lock, kOpeningPatience, [&] { return line->isOpen || line->hasEnded; });
        if (!line->isOpen || line->hasEnded) {
            line->finishBy = SteadyClock::now();
            return false;
        }
    }
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
    const std::lock_guard lock(line->mutex);
    line->finishBy = SteadyClock::now() + kFlushTime;
    line->changed.notify_all();
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

int RealOutput::CountLines() {
    return lines;
}

}  // namespace win32_layer
