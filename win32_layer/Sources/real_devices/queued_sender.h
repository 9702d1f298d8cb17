#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "message_port.h"
#include "message_queue.h"

namespace win32_layer {

/// Sends what waits in a bounded queue, in its order and in pieces that the port can take:
/// nobody who adds to it waits for the system.
///
/// Owner:   the line of a real output.
/// Threads: Run() on the one that has the port; the rest on any, and for nothing.
/// Lock:    mutex_, a leaf; not held while the port is called.
/// Errors:  what a full queue refuses is lost and told, and so is what the system refuses and
///          what could not be sent before the end.
class QueuedSender {
public:
    using Time = std::chrono::steady_clock::time_point;
    /// One line for the operator; must only post.
    using Say = std::function<void(const std::string&)>;

    /// name: of the output, for the operator.
    QueuedSender(std::string name, Say say);

    /// What is added after Close() is dropped.
    void Add(const std::uint8_t* bytes, std::size_t count);
    /// What waits may still be sent until then; and for half a second more what is short,
    /// notes' ends above all. A system-exclusive message that is cut there is ended.
    void Close(Time finishBy);
    /// Sends until Close(), and waits until what was sent has left.
    void Run(MessagePort& port);

private:
    bool WaitForMessage(std::vector<std::uint8_t>& message);
    /// False where it has to end, with the message not sent, or cut.
    bool SendMessage(MessagePort& port, const std::vector<std::uint8_t>& message);
    bool WaitForRoom(MessagePort& port, std::size_t count);
    void SendShortOnes(MessagePort& port, std::vector<std::uint8_t>& message);
    void WaitUntilLeft(const MessagePort& port);
    void TellLosses(bool hasCaughtUp);

    const std::string name_;
    const Say say_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    MessageQueue queue_;
    std::optional<Time> finishBy_;  // empty: it goes on
    std::uint64_t lost_ = 0;        // since the queue was last empty
    // Run()'s own.
    bool lossIsTold_ = false;
    bool isInSysEx_ = false;  // of what was sent
    std::string latestComplaint_;
};

}  // namespace win32_layer
