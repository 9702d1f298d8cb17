#include "zell/cout_buffer.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iomanip>
#include <latch>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using zell::CoutBuffer;

namespace {

/// Standard output is a pipe for as long as this lives.
class StandardOutputPipe {
public:
    StandardOutputPipe() : before_(dup(STDOUT_FILENO)) {
        CoutBuffer::Flush(10s);
        std::fflush(stdout);  // what the test's frame printed is not for the pipe
        int ends[2];
        if (pipe(ends) != 0)
            std::abort();
        reader_ = ends[0];
        dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
    }
    ~StandardOutputPipe() {
        if (reader_ >= 0)
            close(reader_);
        dup2(before_, STDOUT_FILENO);
        close(before_);
    }
    void CloseReader() {
        close(reader_);
        reader_ = -1;
    }
    std::string ReadUntil(const std::string& last) {
        std::string text;
        char piece[4096];
        pollfd data{reader_, POLLIN, 0};
        while (!text.ends_with(last) && poll(&data, 1, 10'000) > 0) {
            const ssize_t size = read(reader_, piece, sizeof piece);
            if (size <= 0)
                break;
            text.append(piece, static_cast<std::size_t>(size));
        }
        return text;
    }

private:
    int before_;
    int reader_ = -1;
};

/// The pieces that the sink is given meanwhile.
std::vector<std::string> Reported(const std::function<void()>& report) {
    std::vector<std::string> texts;
    const auto before = CoutBuffer::SetSink([&](const std::string& text) { texts.push_back(text); });
    report();
    CoutBuffer::SetSink(before);
    return texts;
}

TEST(CoutBuffer, HandsOverOneMessageInOnePieceWhenItEnds) {
    const auto texts = Reported([] {
        CoutBuffer out;
        out << "port " << 3 << zell::endl << std::hex << std::setfill('0') << std::setw(4) << 255 << std::endl;
        { const CoutBuffer nothingToSay; }
        CoutBuffer() << std::string("a") << 'b' << 1.5 << true << zell::endl;
        CoutBuffer() << static_cast<unsigned char>(7) << " " << static_cast<signed char>(-7);  // bytes are numbers
    });
    EXPECT_EQ(texts, (std::vector<std::string>{"ab1.51\n", "7 -7", "port 3\n00ff\n"}));
}

struct Unprintable {};
[[maybe_unused]] std::ostream& operator<<(std::ostream&, const Unprintable&) {
    throw std::runtime_error("no text");
}

TEST(CoutBuffer, SwallowsWhatValuesAndSinksThrow) {
    const auto before = CoutBuffer::SetSink([](const std::string&) { throw std::runtime_error("no console"); });
    EXPECT_NO_THROW(CoutBuffer() << "lost" << zell::endl);
    CoutBuffer::SetSink(before);

    EXPECT_THAT(Reported([] { CoutBuffer() << "before " << Unprintable{} << "after"; }),
                testing::ElementsAre(testing::StartsWith("before ")));
}

TEST(CoutBuffer, ReplacingASinkWaitsUntilItNoLongerRuns) {
    std::latch entered(1);
    std::atomic<bool> left = false;
    const auto before = CoutBuffer::SetSink([&](const std::string&) {
        entered.count_down();
        std::this_thread::sleep_for(20ms);  // long enough for a replacement that does not wait to be seen
        left = true;
    });
    std::thread reporter([] { CoutBuffer() << "x"; });
    entered.wait();
    CoutBuffer::SetSink(before);
    EXPECT_TRUE(left);
    reporter.join();
}

TEST(CoutBuffer, ASinkMayReplaceItself) {
    std::vector<std::string> first;
    std::vector<std::string> second;
    const auto before = CoutBuffer::SetSink([&](const std::string& text) {
        first.push_back(text);
        CoutBuffer::SetSink([&](const std::string& later) { second.push_back(later); });
    });
    CoutBuffer() << "1";
    CoutBuffer() << "2";
    CoutBuffer::SetSink(before);
    EXPECT_EQ(first, std::vector<std::string>{"1"});
    EXPECT_EQ(second, std::vector<std::string>{"2"});
}

TEST(CoutBuffer, LinesOfSeveralThreadsNeverMixOnStandardOutput) {
    constexpr int kThreads = 4;
    constexpr int kLines = 100;
    StandardOutputPipe output;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([thread] {
            for (int line = 0; line < kLines; ++line)
                CoutBuffer() << "thread " << thread << " line " << line << zell::endl;
        });
    for (std::thread& thread : threads)
        thread.join();
    CoutBuffer() << "last" << zell::endl;

    std::istringstream read(output.ReadUntil("last\n"));
    std::vector<int> next(kThreads, 0);
    for (int i = 0; i < kThreads * kLines; ++i) {
        std::string word;
        int thread = -1;
        int line = -1;
        read >> word >> thread >> word >> line;
        ASSERT_TRUE(read && thread >= 0 && thread < kThreads) << i;
        EXPECT_EQ(line, next[static_cast<std::size_t>(thread)]++) << "thread " << thread;
    }
}

TEST(CoutBuffer, WhatAStuckTerminalCannotTakeIsDroppedCountedAndToldOfLater) {
    StandardOutputPipe output;
    const auto droppedBefore = CoutBuffer::GetDroppedCount();
    const std::string line(999, 'x');
    constexpr int kSent = 4000;  // about four times what is kept

    for (int i = 0; i < kSent; ++i)
        CoutBuffer() << line << zell::endl;
    const auto dropped = CoutBuffer::GetDroppedCount() - droppedBefore;
    ASSERT_GT(dropped, 0u);
    EXPECT_FALSE(CoutBuffer::Flush(1ms));

    const std::string notice =
        "WARNING: " + std::to_string(dropped) + " console messages were lost while standard output was stuck.\n";
    const std::string text = output.ReadUntil(notice);
    EXPECT_EQ(text.size(), (kSent - dropped) * 1000 + notice.size());
    EXPECT_TRUE(CoutBuffer::Flush(10s));
}

// Each in a process of its own, whose end is what counts.
class CoutBufferDeathTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(CoutBufferDeathTest, AStuckTerminalDoesNotKeepTheProcessFromEnding) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EXIT(
        {
            const StandardOutputPipe output;
            for (int i = 0; i < 2000; ++i)
                CoutBuffer() << std::string(999, 'x') << zell::endl;
            std::exit(CoutBuffer::GetDroppedCount() > 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
}

TEST_F(CoutBufferDeathTest, WhatIsReportedJustBeforeTheProcessEndsStillArrives) {
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            for (int i = 0; i < 900; ++i)  // what no writer has written by the time of the exit
                CoutBuffer() << std::string(999, 'x') << zell::endl;
            CoutBuffer() << "last words" << zell::endl;
            std::exit(0);
        },
        testing::ExitedWithCode(0), "last words");
}

TEST_F(CoutBufferDeathTest, AClosedTerminalDoesNotEndTheShow) {
    EXPECT_EXIT(
        {
            StandardOutputPipe output;
            output.CloseReader();
            CoutBuffer() << "into the void" << zell::endl;
            std::exit(CoutBuffer::Flush(10s) ? 3 : 4);
        },
        testing::ExitedWithCode(3), "");
}

}  // namespace
