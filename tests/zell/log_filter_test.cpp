#include "zell/log_filter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

TEST(LogFilter, TellsTheListenerOfEachAttemptAndSuccess) {
    std::vector<zell::LogEntry> entries;
    zell::LogFilter(zell::LogAttempt, "clock.cpp", 1, "nobody listens", false);
    zell::SetLogListener([&](const zell::LogEntry& entry) { entries.push_back(entry); });
    zell::LogFilter(zell::LogAttempt, "clock.cpp", 7, "calling timeSetEvent", true);
    zell::LogFilter(zell::LogSuccess, "clock.cpp", 9, "calling timeSetEvent", false);
    zell::SetLogListener(nullptr);
    zell::LogFilter(zell::LogAttempt, "clock.cpp", 11, "nobody listens", false);

    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].kind, zell::LogAttempt);
    EXPECT_STREQ(entries[0].file, "clock.cpp");
    EXPECT_EQ(entries[0].line, 7);
    EXPECT_STREQ(entries[0].description, "calling timeSetEvent");
    EXPECT_TRUE(entries[0].flag);
    EXPECT_EQ(entries[1].kind, zell::LogSuccess);
    EXPECT_EQ(entries[1].line, 9);
    EXPECT_FALSE(entries[1].flag);
}

TEST(LogFilter, AListenerThatThrowsDoesNotReachTheCaller) {
    zell::SetLogListener([](const zell::LogEntry&) { throw std::runtime_error("listener"); });
    zell::LogFilter(zell::LogAttempt, "clock.cpp", 1, "calling timeSetEvent", false);  // noexcept: it would end here
    zell::SetLogListener(nullptr);
}

TEST(LogFilter, AListenerMayBeDestroyedOnceItIsReplaced) {
    std::latch start(2);
    std::atomic<bool> stop = false;
    std::thread clock([&] {
        start.arrive_and_wait();
        while (!stop)
            zell::LogFilter(zell::LogAttempt, "clock.cpp", 1, "calling timeSetEvent", false);
    });
    start.arrive_and_wait();
    for (int round = 0; round < 2000; ++round) {
        auto count = std::make_unique<int>(0);  // freed while the clock logs on: only waiting makes that safe
        zell::SetLogListener([&](const zell::LogEntry&) { ++*count; });
        zell::SetLogListener(nullptr);
    }
    stop = true;
    clock.join();
}

TEST(LogFilter, AFailureMessageNamesFileLineCallAndDetail) {
    EXPECT_EQ(zell::CreateFailureMessage("clock.cpp", 12, "calling timeSetEvent", "out of timers"),
              "clock.cpp line 12: calling timeSetEvent failed: out of timers");
    EXPECT_EQ(zell::CreateFailureMessage("clock.cpp", 12, "calling timeSetEvent", ""),
              "clock.cpp line 12: calling timeSetEvent failed.");
}

}  // namespace
