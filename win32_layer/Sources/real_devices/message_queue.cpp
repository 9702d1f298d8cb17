#include "message_queue.h"

#include <algorithm>
#include <cstring>

namespace win32_layer {

bool MessageQueue::Push(const std::uint8_t* bytes, std::size_t count) {
    const auto length = static_cast<std::uint32_t>(count);
    if (sizeof(length) + count > kBytes - used_)
        return false;
    Write(reinterpret_cast<const std::uint8_t*>(&length), sizeof(length));
    Write(bytes, count);
    return true;
}

void MessageQueue::Pop(std::vector<std::uint8_t>& message) {
    std::uint32_t length = 0;
    Read(reinterpret_cast<std::uint8_t*>(&length), sizeof(length));
    message.resize(length);
    Read(message.data(), length);
}

void MessageQueue::Write(const std::uint8_t* bytes, std::size_t count) {
    const std::size_t at = (first_ + used_) % kBytes;
    const std::size_t atOnce = std::min(count, kBytes - at);
    std::memcpy(ring_.data() + at, bytes, atOnce);
    std::memcpy(ring_.data(), bytes + atOnce, count - atOnce);
    used_ += count;
}

void MessageQueue::Read(std::uint8_t* bytes, std::size_t count) {
    const std::size_t atOnce = std::min(count, kBytes - first_);
    std::memcpy(bytes, ring_.data() + first_, atOnce);
    std::memcpy(bytes + atOnce, ring_.data(), count - atOnce);
    first_ = (first_ + count) % kBytes;
    used_ -= count;
}

}  // namespace win32_layer
