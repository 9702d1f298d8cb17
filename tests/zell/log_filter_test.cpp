#include "zell/log_filter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "tests/midi/at_once.h"

namespace {

TEST(LogFilter, AListenerThatThrowsDoesNotReachTheCaller) {
    zell::SetLogListener([](const zell::LogEntry&) { throw std::runtime_error("listener"); });
    zell::LogFilter(zell::LogAttempt, "clock.cpp", 1, "calling timeSetEvent", false);  // noexcept: it would end here
    zell::SetLogListener(nullptr);
}

TEST(LogFilter, AListenerMayBeDestroyedOnceItIsReplaced) {
    std::atomic<bool> stop = false;
    const auto replace = [&] {
        for (int round = 0; round < 2000; ++round) {
            auto count = std::make_unique<int>(0);  // freed while the clock logs on: only waiting makes that safe
            zell::SetLogListener([&](const zell::LogEntry&) { ++*count; });
            zell::SetLogListener(nullptr);
        }
        stop = true;
    };
    AtOnce(replace, [&] {
        while (!stop)
            zell::LogFilter(zell::LogAttempt, "clock.cpp", 1, "calling timeSetEvent", false);
    });
}

TEST(LogFilter, AFailureMessageNamesFileLineCallAndDetail) {
    EXPECT_EQ(zell::CreateFailureMessage("clock.cpp", 12, "calling timeSetEvent", "out of timers"),
              "clock.cpp line 12: calling timeSetEvent failed: out of timers");
    EXPECT_EQ(zell::CreateFailureMessage("clock.cpp", 12, "calling timeSetEvent", ""),
              "clock.cpp line 12: calling timeSetEvent failed.");
}

}  // namespace
