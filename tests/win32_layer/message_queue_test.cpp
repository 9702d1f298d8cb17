#include "win32_layer/Sources/real_devices/message_queue.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using win32_layer::MessageQueue;

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kLengthBytes = 4;  // that the queue keeps with each message

Bytes Numbered(std::size_t count, std::size_t first) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(first + i);
    return bytes;
}

bool Push(MessageQueue& queue, const Bytes& message) {
    return queue.Push(message.data(), message.size());
}

Bytes Pop(MessageQueue& queue) {
    Bytes message = {1, 2, 3};
    queue.Pop(message);
    return message;
}

TEST(MessageQueue, MessagesAreWholeWhereverTheRingEnds) {
    // With the queue's own four bytes odd: the ring ends within messages, and within their lengths.
    for (const std::size_t length : {3u, 997u, 65'521u}) {
        MessageQueue queue;
        const std::size_t rounds = 3 * MessageQueue::kBytes / length;
        ASSERT_TRUE(Push(queue, Numbered(length, 0)));
        for (std::size_t round = 1; round < rounds; ++round) {
            ASSERT_TRUE(Push(queue, Numbered(length, round)));
            ASSERT_EQ(Pop(queue), Numbered(length, round - 1)) << length << " bytes, round " << round;
        }
        EXPECT_EQ(Pop(queue), Numbered(length, rounds - 1));
        EXPECT_TRUE(queue.IsEmpty());
    }
}

TEST(MessageQueue, WhatDoesNotFitLeavesTheQueueAsItIs) {
    MessageQueue queue;
    EXPECT_FALSE(Push(queue, Bytes(MessageQueue::kBytes + 1)));
    EXPECT_FALSE(Push(queue, Bytes(MessageQueue::kBytes - kLengthBytes + 1)));
    EXPECT_TRUE(queue.IsEmpty());
    const Bytes largest = Numbered(MessageQueue::kBytes - kLengthBytes, 1);
    EXPECT_TRUE(Push(queue, largest));
    EXPECT_EQ(Pop(queue), largest);
    const Bytes first = Numbered(MessageQueue::kBytes - 2 * kLengthBytes - 3, 7);
    EXPECT_TRUE(Push(queue, first));
    EXPECT_FALSE(Push(queue, {0x90, 60, 64, 0})) << "a byte too many";
    EXPECT_TRUE(Push(queue, {0x80, 60, 0})) << "full to the last byte";
    EXPECT_FALSE(Push(queue, {0xF8}));
    EXPECT_EQ(Pop(queue), first);
    EXPECT_TRUE(Push(queue, {0xF8}));
    EXPECT_EQ(Pop(queue), Bytes({0x80, 60, 0}));
    EXPECT_EQ(Pop(queue), Bytes({0xF8}));
    EXPECT_TRUE(queue.IsEmpty());
}

}  // namespace
