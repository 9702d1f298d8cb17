#include "win32_layer/Sources/real_devices/wire_backlog.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace std::chrono_literals;
using win32_layer::WireBacklog;

const WireBacklog::Time kStart{1h};

TEST(WireBacklog, ADriverIsNeverGivenMoreShortMessagesThanItsBufferHolds) {
    WireBacklog backlog;
    int sent = 0;
    for (; backlog.HasRoomFor(3, kStart); ++sent)
        backlog.Add(3, kStart);
    EXPECT_EQ(sent, 1166) << "3,498 bytes of 4,096";
    EXPECT_TRUE(backlog.HasRoomFor(2, kStart));
    // 320 us for a byte: one more has to be gone.
    EXPECT_FALSE(backlog.HasRoomFor(3, kStart + 319us));
    EXPECT_TRUE(backlog.HasRoomFor(3, kStart + 320us));
}

TEST(WireBacklog, LongMessagesLeaveRoomForNotes) {
    WireBacklog backlog;
    backlog.Add(3, kStart - 1h);  // a quiet time saves up no room
    int pieces = 0;
    for (; backlog.HasRoomFor(1024, kStart); ++pieces)
        backlog.Add(1024, kStart);
    EXPECT_EQ(pieces, 2);
    EXPECT_FALSE(backlog.HasRoomFor(5, kStart));
    int notes = 0;
    for (; backlog.HasRoomFor(3, kStart); ++notes)
        backlog.Add(3, kStart);
    EXPECT_EQ(notes, 484) << "1,452 bytes";
    EXPECT_FALSE(backlog.HasRoomFor(1024, kStart + 790ms));
    EXPECT_TRUE(backlog.HasRoomFor(1024, kStart + 800ms));
}

}  // namespace
