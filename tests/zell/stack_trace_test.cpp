#include "zell/stack_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "zell/cout_buffer.h"

namespace {

std::string Traced(int depth) {
    std::string text;
    const auto before = zell::CoutBuffer::SetSink([&](const std::string& piece) { text += piece; });
    zell::PrintStackTrace(depth);
    zell::CoutBuffer::SetSink(before);
    return text;
}

TEST(StackTrace, PrintsNoMoreFramesThanAskedFor) {
    EXPECT_EQ(Traced(0), "");
    EXPECT_EQ(Traced(-1), "");
    const std::string three = Traced(3);
    EXPECT_THAT(three, testing::StartsWith("Stack trace:\n  0 0x"));
    EXPECT_EQ(std::ranges::count(three, '\n'), 4);
    EXPECT_GT(std::ranges::count(Traced(1'000'000), '\n'), 4);
}

}  // namespace
