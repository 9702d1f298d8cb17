#include "midi/midi_time_code_thread.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <vector>

#include "tests/midi/exception_capture.h"
#include "tests/midi/frame_labels.h"
#include "tests/midi/patience.h"

namespace {

using testing::ElementsAre;

// Under a sanitizer the same grid plays shorter songs.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kSecondsOfPlay = 240.0;
#else
constexpr double kSecondsOfPlay = 3600.0;
#endif
constexpr double kJitter = 0.003;  // of the clock, to either side, and of the timer, which is late
constexpr std::array kFramesPerSecond{24.0, 25.0, 29.97, 30.0};

/// The labels of the first three hours.
const std::vector<Label>& LabelsOf(FrameRate rate) {
    static std::map<FrameRate, std::vector<Label>> tables;
    std::vector<Label>& labels = tables[rate];
    if (labels.empty())
        labels = CreateLabels(rate, 3);
    return labels;
}

/// A device that follows: it knows a place after eight pieces in order, and is
/// locked when the eight before told the place two frames earlier.
class Receiver {
public:
    void Take(const QuarterFrameMessage& message, const std::vector<Label>& labels) {
        const int index = message.GetDataByte() >> 4;
        const int nibble = message.GetDataByte() & 0x0F;
        inOrder_ = index == 0 || index == inOrder_ ? index + 1 : 0;
        nibbles_[static_cast<std::size_t>(index & 7)] = nibble;
        ++piecesSinceChange;
        if (inOrder_ != 8)
            return;
        inOrder_ = 0;
        told = {nibbles_[6] | (nibbles_[7] & 1) << 4, nibbles_[4] | nibbles_[5] << 4, nibbles_[2] | nibbles_[3] << 4,
                nibbles_[0] | nibbles_[1] << 4};
        rate = static_cast<FrameRate>(nibbles_[7] >> 1);
        const auto place = std::lower_bound(labels.begin(), labels.end(), told) - labels.begin();
        if (place == previous_ + 2 && piecesToLock == 0)
            piecesToLock = piecesSinceChange;
        previous_ = place;
    }

    Label told{};
    FrameRate rate{};
    int piecesSinceChange = 0;
    int piecesToLock = 0;  // 0 until locked

private:
    std::array<int, 8> nibbles_{};
    int inOrder_ = 0;
    std::ptrdiff_t previous_ = -10;
};

/// Plays spans in virtual time, with a timer that is a little late, and holds what
/// is sent against the labels.
class VirtualPlay : public MidiTimeCodeThread {
public:
    VirtualPlay(FrameRate rate, unsigned seed) : random_(seed) { ChangeRate(rate); }

    void ChangeRate(FrameRate rate) {
        SetFrameRate(rate);
        labels_ = &LabelsOf(rate);
        framesPerSecond_ = kFramesPerSecond[static_cast<std::size_t>(rate)];
    }
    void Span(double from, double to, double realSeconds) {
        AdvanceTo(start_ + length_ + 2 * Late() - kJitter);
        start_ = now_;
        length_ = realSeconds;
        from_ = from;
        to_ = to;
        SetMidiTimeCodeInterval(from, to, realSeconds);
        due_ = nextQuarterFrameTime_;
    }
    void Pause(double seconds) { AdvanceTo(start_ + length_ + seconds); }
    void Locate(double seconds) {
        locating_ = true;
        SendMidiTimeCodeWithSeconds(seconds);
        locating_ = false;
    }

    int jumps = 0;
    int locates = 0;
    std::int64_t pieces = 0;
    std::int64_t wrong = 0;
    // Seconds off its time beyond the jitter and a span, or its own quarter frame
    // where that is longer.
    double farthestOff = 0.0;
    int largestBatch = 0;
    int largestBurst = 0;  // at one instant, but where it jumped
    Receiver receiver;

private:
    void SetOutputPortIndex(unsigned int /*portIndex*/) override {}
    void CancelTimer() override {}
    void Run() override {}
    double GetCurrentSeconds() override { return now_; }

    void SendFullFrameMessage(FullFrameMessage message) override {
        const Label label{message.GetHours(), message.GetMinutes(), message.GetSeconds(), message.GetFrames()};
        if (locating_) {
            ++locates;
            return;
        }
        ++jumps;
        jumpedAt_ = now_;
        const auto found = std::lower_bound(labels_->begin(), labels_->end(), label);
        wrong += found == labels_->end() || *found != label || message.GetFrameRate() != GetFrameRate();
        place_ = (found - labels_->begin()) * 4;
        cycleStart_ = place_;
        const double behind = from_ - static_cast<double>(place_) / 4 / framesPerSecond_;
        wrong += behind < -1e-9 || behind > 1 / framesPerSecond_ + 1e-9;
        receiver = Receiver();
    }

    void SendQuarterFrameMessages(const std::vector<QuarterFrameMessage>& messages) override {
        largestBatch = std::max(largestBatch, static_cast<int>(messages.size()));
        for (const QuarterFrameMessage& message : messages) {
            const std::int64_t index = (place_ - cycleStart_) % 8;
            wrong += message.GetIndex() != index;
            receiver.Take(message, *labels_);
            if (index == 7)
                wrong += receiver.told != (*labels_)[static_cast<std::size_t>((place_ - 7) / 4)] ||
                         receiver.rate != GetFrameRate();
            const double real = length_ / (to_ - from_);
            const double quarter = real / 4 / framesPerSecond_;
            const double due = start_ + static_cast<double>(place_) * quarter - from_ * real;
            if (now_ != jumpedAt_) {
                farthestOff = std::max(farthestOff, std::abs(now_ - due) - std::max(length_, quarter) - 2 * kJitter);
                burst_ = now_ == sentAt_ ? burst_ + 1 : 1;
                largestBurst = std::max(largestBurst, burst_);
            }
            sentAt_ = now_;
            ++place_;
            ++pieces;
        }
    }

    void AdvanceTo(double time) {
        while (isSendingFutureMessages_) {
            const double tick = due_ + Late();
            if (tick >= time)
                break;
            now_ = std::max(now_, tick);
            QuarterFrameMessageTimerCallback();
            due_ += quarterFrameInterval_;
        }
        now_ = std::max(now_, time);
    }
    double Late() { return kJitter * static_cast<double>(random_()) / static_cast<double>(random_.max()); }

    std::minstd_rand random_;
    const std::vector<Label>* labels_ = nullptr;
    double framesPerSecond_ = 0.0;
    double now_ = 0.0;
    double due_ = 0.0;
    double start_ = 0.0;
    double length_ = 0.0;
    double from_ = 0.0;
    double to_ = 0.0;
    bool locating_ = false;
    double jumpedAt_ = -1.0;
    double sentAt_ = -1.0;
    int burst_ = 0;
    std::int64_t place_ = 0;  // in quarter frames, of the next piece
    std::int64_t cycleStart_ = 0;
};

/// The k-th clock of a song, from its own start on the show's axis.
double ClockSeconds(double start, double beatsPerMinute, int clock) {
    return start + clock * 20 * (60.0 / (beatsPerMinute * 480));
}

TEST(MidiTimeCodeThread, AnHourOfPlayIsOneFullFrameAndPiecesInTimeAndOrder) {
    for (const FrameRate rate : kRates) {
        for (const double beatsPerMinute : {30.0, 120.0, 173.0, 300.0}) {
            for (const double scale : {0.5, 1.0, 2.0}) {
                VirtualPlay play(rate, 1);
                const double start = 1787.013;
                const int clocks = static_cast<int>(kSecondsOfPlay * beatsPerMinute * 24 / 60);
                for (int k = 0; k < clocks; ++k) {
                    const double from = ClockSeconds(start, beatsPerMinute, k);
                    const double to = ClockSeconds(start, beatsPerMinute, k + 1);
                    play.Span(from, to, (to - from) / scale);
                }
                SCOPED_TRACE(testing::Message() << ConvertFrameRateToString(rate) << ", " << beatsPerMinute
                                                << " a minute, scale " << scale);
                EXPECT_EQ(play.jumps, 1);
                EXPECT_EQ(play.wrong, 0);
                EXPECT_LE(play.farthestOff, 0.0);
                EXPECT_EQ(play.receiver.piecesToLock, 16);
                EXPECT_NEAR(static_cast<double>(play.pieces),
                            kSecondsOfPlay * 4 * kFramesPerSecond[static_cast<std::size_t>(rate)], 12.0);
                EXPECT_TRUE(scale != 1.0 || play.largestBurst <= 3) << play.largestBurst;
            }
        }
    }
}

TEST(MidiTimeCodeThread, SeeksPausesAndRateChangesCostOneFullFrameEachOrNone) {
    constexpr unsigned kSeed = 20;
    std::minstd_rand random(kSeed);
    const auto below = [&random](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    VirtualPlay play(FrameRate::k2997Drop, kSeed);
    double start = 58.9;
    int clock = 0;
    int jumps = 1;
    int locates = 0;
    for (int round = 0; round < 3000; ++round) {
        const double beatsPerMinute = 30 + below(270);
        start = ClockSeconds(start, beatsPerMinute, clock) - ClockSeconds(0.0, beatsPerMinute, clock);
        // Long enough for sixteen pieces.
        const int spans = 1 + static_cast<int>(beatsPerMinute / 2);
        double place = start;
        for (int k = 0; k < spans; ++k) {
            const double from = place;
            place = ClockSeconds(start, beatsPerMinute, k + 1);
            play.Span(from, place, (place - from) * (below(2) == 0 ? 1.0 : 1.25));
            ASSERT_EQ(play.jumps, jumps) << "round " << round << ", span " << k << ", seed " << kSeed;
        }
        ASSERT_TRUE(play.receiver.piecesToLock == 16) << "round " << round;
        start = place;
        clock = 0;
        switch (below(4)) {
            case 0:
                start = below(8000) + below(1000) / 1000.0;
                ++jumps;
                break;
            case 1: play.Pause(below(100) / 10.0); break;
            case 2:
                start = 3599.9;
                play.Pause(1.0);
                play.Locate(start);
                ++locates;
                ++jumps;
                break;
            default:
                play.ChangeRate(kRates[static_cast<std::size_t>(below(4))]);
                ++jumps;
                break;
        }
        ASSERT_EQ(play.wrong, 0) << "round " << round << ", seed " << kSeed;
        ASSERT_EQ(play.locates, locates);
    }
    EXPECT_LE(play.farthestOff, 0.0) << "seed " << kSeed;
    EXPECT_LE(play.largestBatch, 3);
}

/// Lists what is sent: "F" and a frame label, or the index of a piece, with a bar
/// after each batch. Its loop runs as the flags tell, with no time between ticks.
class ListingThread : public MidiTimeCodeThread {
public:
    using MidiTimeCodeThread::QuarterFrameMessageTimerCallback;
    using MidiTimeCodeThread::Start;
    using MidiTimeCodeThread::Stop;
    ~ListingThread() override { Stop(); }

    double Interval() const { return quarterFrameInterval_; }
    bool IsPending() const { return isSendingFutureMessages_; }
    std::string Take() { return std::exchange(sent, ""); }

    std::string sent;
    Count count;
    std::function<void()> beforeLoop = [] {};

private:
    void SetOutputPortIndex(unsigned int /*portIndex*/) override {}
    void CancelTimer() override {}
    void SendQuarterFrameMessages(const std::vector<QuarterFrameMessage>& messages) override {
        for (const QuarterFrameMessage& message : messages) {
            sent += std::to_string(message.GetIndex());
            count.Add();
        }
        sent += "|";
    }
    void SendFullFrameMessage(FullFrameMessage message) override {
        sent += "F" + std::to_string(message.GetFrames()) + "|";
    }
    double GetCurrentSeconds() override { return 0.0; }
    void Run() override {
        beforeLoop();
        while (isRunning_) {
            {
                std::unique_lock lock(timerMutex_);
                timerCondition_.wait(lock, [this] { return !isRunning_ || isSendingFutureMessages_; });
            }
            QuarterFrameMessageTimerCallback();
        }
    }
};

TEST(MidiTimeCodeThread, OneSpanAfterAnother) {
    ListingThread thread;
    thread.SetMidiTimeCodeInterval(0.0, 2.6 / 120, 0.02);  // at 120 quarter frames a second
    EXPECT_EQ(thread.Take(), "F0|0|");
    EXPECT_DOUBLE_EQ(thread.Interval(), 0.01);
    thread.QuarterFrameMessageTimerCallback();
    EXPECT_FALSE(thread.IsPending());
    thread.QuarterFrameMessageTimerCallback();
    EXPECT_EQ(thread.Take(), "1|");

    thread.SetMidiTimeCodeInterval(2.6 / 120, 5.6 / 120, 0.02);
    thread.SetMidiTimeCodeInterval(5.6 / 120, 5.7 / 120, 0.02);
    EXPECT_EQ(thread.Take(), "2|34|") << "what was pending comes at once; a span within a quarter frame has none";
    EXPECT_FALSE(thread.IsPending());

    thread.SetMidiTimeCodeInterval(11.6 / 120, 13.6 / 120, 0.02);
    EXPECT_EQ(thread.Take(), "F2|012|3|") << "up to the place inside the frame";
    thread.SetMidiTimeCodeInterval(13.6 / 120, 5.6 / 120, 0.02);
    EXPECT_EQ(thread.Take(), "4|") << "nothing goes backwards";
    EXPECT_FALSE(thread.IsPending());

    thread.SetMidiTimeCodeInterval(8.1 / 120, 12.1 / 120, 0.02);
    thread.SetFrameRate(FrameRate::k30);
    thread.QuarterFrameMessageTimerCallback();
    EXPECT_EQ(thread.Take(), "F2|0|") << "the rest is dropped";
    thread.SetMidiTimeCodeInterval(0.0, 0.0, 0.02);
    EXPECT_EQ(thread.Take(), "F0|") << "a span after a change of the rate locates, at zero too";

    thread.SendMidiTimeCodeWithSeconds(5.5);
    thread.SetMidiTimeCodeInterval(0.0, 1.0 / 120, 0.02);
    EXPECT_EQ(thread.Take(), "F15|0|") << "a locate changes nothing of the pieces";
    thread.SetMidiTimeCodeInterval(86399.995, 86400.01, 0.02);
    thread.SetMidiTimeCodeInterval(86400.01, 86400.03, 0.02);
    EXPECT_EQ(thread.Take(), "F29|012|F0|0|1|") << "from midnight on it counts from zero";
}

TEST(MidiTimeCodeThread, ASpanOverDroppedLabelsEndsAtItsTarget) {
    ListingThread thread;
    thread.SetFrameRate(FrameRate::k2997Drop);
    const double quarter = 1 / 29.97 / 4;
    const auto place = [quarter](int quarters) { return (1800 * 4 + quarters + 0.5) * quarter; };  // from 00:01:00;02
    thread.SetMidiTimeCodeInterval(place(28 * 4 - 2), place(28 * 4 + 2), 0.12);                    // to 00:01:01;00
    EXPECT_DOUBLE_EQ(thread.Interval(), 0.01) << "twelve are counted";
    for (int i = 0; i < 12; ++i)
        thread.QuarterFrameMessageTimerCallback();
    EXPECT_EQ(thread.Take(), "F29|01|2|3|4|5|") << "four are sent";
    EXPECT_FALSE(thread.IsPending());
}

TEST(MidiTimeCodeThread, ItsLoopMissesNoWakeUpAndStops) {
    MustEnd("the loop", [] {
        ListingThread thread;
        thread.Start();
        for (int span = 0; span < 2000; ++span) {
            thread.SetMidiTimeCodeInterval(span * 2 / 120.0 + 0.001, (span + 1) * 2 / 120.0 + 0.001, 0.001);
            ASSERT_TRUE(thread.count.WaitFor(2 * span + 2)) << "span " << span;
        }
        thread.Stop();
        thread.Start();
    });
}

TEST(MidiTimeCodeThread, WhatItsLoopThrowsIsLoggedAndEndsIt) {
    ExceptionCapture log;
    for (const bool isException : {true, false}) {
        ListingThread thread;
        thread.beforeLoop = [isException] {
            if (isException)
                throw std::runtime_error("no port");
            throw 1;  // NOLINT(hicpp-exception-baseclass)
        };
        thread.Start();
    }
    EXPECT_THAT(log.Take(),
                ElementsAre("midi/Sources/mtc_thread: no port", "midi/Sources/mtc_thread: Unknown exception."));
}

}  // namespace
