#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace win32_layer {

/// MIDI messages in their order, until a thread that may block takes them. A fixed ring:
/// whoever puts a message in is in a hurry and must not allocate.
///
/// Owner:   a QueuedSender, by value.
/// Threads: one at a time (the sender's lock).
/// Units:   bytes.
class MessageQueue {
public:
    /// Room for the largest stream buffer three times over.
    static constexpr std::size_t kBytes = std::size_t{1} << 18;

    MessageQueue() : ring_(kBytes) {}
    bool IsEmpty() const { return used_ == 0; }
    /// False, and nothing put in, where it does not fit.
    bool Push(const std::uint8_t* bytes, std::size_t count);
    /// Replaces what message holds; not on an empty queue.
    void Pop(std::vector<std::uint8_t>& message);

private:
    void Write(const std::uint8_t* bytes, std::size_t count);
    void Read(std::uint8_t* bytes, std::size_t count);

    std::vector<std::uint8_t> ring_;
    std::size_t first_ = 0;
    std::size_t used_ = 0;
};

}  // namespace win32_layer
