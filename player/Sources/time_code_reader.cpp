#include "player/time_code_reader.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "midi/full_frame_message.h"

namespace player {

namespace {

constexpr int kPiecesPerCycle = 8;
constexpr int kFramesPerCycle = 2;
constexpr std::size_t kMostIntervals = 1'000'000;
constexpr std::uint8_t kQuarterFrameStatus = 0xF1;

double QuarterFrameSeconds(FrameRate rate) {
    switch (rate) {
        case FrameRate::k24: return 1.0 / 96;
        case FrameRate::k25: return 1.0 / 100;
        case FrameRate::k2997Drop: return 1.0 / 119.88;
        case FrameRate::k30: break;
    }
    return 1.0 / 120;
}

/// The label of a message may be none of its rate.
std::optional<MidiTimeCode> TimeOf(unsigned hours, unsigned minutes, unsigned seconds, unsigned frames,
                                   FrameRate rate) {
    const auto byte = [](unsigned value) { return static_cast<unsigned char>(value); };
    try {
        return MidiTimeCode(byte(hours), byte(minutes), byte(seconds), byte(frames), rate);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

TimeCodeReader::TimeCodeReader(Receiver receiver) : receiver_(std::move(receiver)) {}

void TimeCodeReader::Read(const std::uint8_t* bytes, std::size_t count, double seconds) {
    // F0 7F device 01 01 hours minutes seconds frames F7
    if (count == FullFrameMessage::kSize && bytes[0] == 0xF0 && bytes[1] == 0x7F && bytes[3] == 1 && bytes[4] == 1)
        ReadFullFrame(bytes, seconds);
    else if (count == 2 && bytes[0] == kQuarterFrameStatus)
        ReadPiece(bytes[1], seconds);
}

void TimeCodeReader::ReadFullFrame(const std::uint8_t* bytes, double seconds) {
    ++fullFrames_;
    const auto rate = static_cast<FrameRate>(bytes[5] >> 5 & 3);
    // What comes after it is a new run of pieces.
    expected_ = -1;
    inCycle_ = 0;
    isLocked_ = false;
    whole_.reset();
    lastPiece_.reset();
    rate_ = rate;
    if (const auto time = TimeOf(bytes[5] & 0x1Fu, bytes[6], bytes[7], bytes[8], rate))
        Tell(Event::Kind::kLocated, seconds, *time);
}

void TimeCodeReader::ReadPiece(std::uint8_t data, double seconds) {
    ++pieces_;
    const int index = data >> 4 & 7;
    if (expected_ >= 0 && index != expected_) {
        const int missing = (index - expected_ + kPiecesPerCycle) % kPiecesPerCycle;
        missing_ += static_cast<std::uint64_t>(missing);
        inCycle_ = 0;
        isLocked_ = false;
        whole_.reset();
        Tell(Event::Kind::kMissing, seconds, time_, missing);
    } else if (lastPiece_) {
        const auto interval = static_cast<float>(seconds - *lastPiece_);
        if (intervals_.size() < kMostIntervals)
            intervals_.push_back(interval);
        else
            intervals_[nextInterval_++ % kMostIntervals] = interval;
    }
    lastPiece_ = seconds;
    expected_ = (index + 1) % kPiecesPerCycle;
    nibbles_[static_cast<std::size_t>(index)] = data & 0x0F;
    if (index == 0)
        inCycle_ = 1;
    else if (inCycle_ == index)
        ++inCycle_;
    if (index == kPiecesPerCycle - 1 && std::exchange(inCycle_, 0) == kPiecesPerCycle)
        CompleteCycle(seconds);
}

void TimeCodeReader::CompleteCycle(double seconds) {
    const auto value = [this](std::size_t low) {
        return nibbles_[low] | static_cast<unsigned>(nibbles_[low + 1]) << 4;
    };
    const auto rate = static_cast<FrameRate>(nibbles_[7] >> 1 & 3);
    rate_ = rate;
    const auto told = TimeOf(value(6) & 0x1F, value(4), value(2), value(0), rate);
    if (!told) {
        // No such label: whatever it was meant to be, the time that was running is lost.
        whole_.reset();
        isLocked_ = false;
        ++jumps_;
        return;
    }
    // The label is that of the moment of the first piece; seven quarter frames have passed.
    MidiTimeCode now = *told;
    ++now;
    now.SetQuarterFrameIndex(3);
    const bool isFirst = !whole_;
    bool follows = false;
    if (whole_ && whole_->GetFrameRate() == rate) {
        MidiTimeCode expected = *whole_;
        for (int i = 0; i < kFramesPerCycle; ++i)
            ++expected;
        follows = expected == *told;
    }
    whole_ = told;
    isLocked_ = true;
    if (!isFirst && !follows)
        ++jumps_;
    Tell(isFirst ? Event::Kind::kLocked : follows ? Event::Kind::kRuns : Event::Kind::kJumped, seconds, now);
}

void TimeCodeReader::Tell(Event::Kind kind, double seconds, const MidiTimeCode& time, int missing) {
    time_ = time;
    if (receiver_)
        receiver_({kind, seconds, time, missing});
}

std::optional<TimeCodeReader::Regularity> TimeCodeReader::GetRegularity() const {
    if (intervals_.empty() || !rate_)
        return std::nullopt;
    std::vector<float> sorted = intervals_;
    std::sort(sorted.begin(), sorted.end());
    Regularity regularity;
    regularity.nominal = QuarterFrameSeconds(*rate_);
    regularity.median = sorted[sorted.size() / 2];
    for (float& interval : sorted)
        interval = static_cast<float>(std::abs(interval - regularity.nominal));
    std::sort(sorted.begin(), sorted.end());
    regularity.ninetyNinth = sorted[(sorted.size() - 1) * 99 / 100];
    regularity.worst = sorted.back();
    return regularity;
}

}  // namespace player
